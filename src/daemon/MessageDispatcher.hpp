#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "net/Broadcaster.hpp"
#include "net/IBroadcasterCallback.hpp"
#include "settings/Settings.hpp"
#include "wire/Message.hpp"
#include "wire/Request.hpp"

namespace lcfd {

// The daemon: owns the device settings and the transport, takes every datagram apart,
// answers it, and traces it on standard output.
class MessageDispatcher : public IBroadcasterCallback {
  public:
    // Reads the device, then opens the transport on `port` for the selected interface.
    explicit MessageDispatcher(std::uint16_t port);
    // The same with the device reached through `shell`, which must outlive the dispatcher.
    MessageDispatcher(std::uint16_t port, DeviceShell& shell);
    ~MessageDispatcher() override;
    MessageDispatcher(const MessageDispatcher&) = delete;
    MessageDispatcher& operator=(const MessageDispatcher&) = delete;

    void onMessage(const char* data, std::int64_t length, std::uint32_t senderAddress) override;
    [[noreturn]] void run();

  private:
    Decision parseMessage(std::string_view text);
    void handleCommand(const Decision& decision);
    void reply(const std::string& text);
    void sendStatus();
    void applyAssignment();

    Message message_;
    // Reused for every datagram: what goes to standard output for it.
    std::string consoleOutput_;
    std::unique_ptr<Broadcaster> broadcaster_;
    std::unique_ptr<Settings> settings_;
};

}  // namespace lcfd
