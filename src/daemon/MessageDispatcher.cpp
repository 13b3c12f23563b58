#include "daemon/MessageDispatcher.hpp"

#include <unistd.h>

#include <cstdio>

#include "daemon/StatusSources.hpp"
#include "daemon/Trace.hpp"
#include "wire/AssignableFields.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Replies.hpp"

namespace lcfd {
namespace {

// Hands one requested value to the setter of its field.
void applyField(Settings& settings, AssignableKey id, const std::string& value) {
    switch (id) {
        case AssignableKey::Ip:
            settings.setIp(value);
            return;
        case AssignableKey::Netmask:
            settings.setNetmask(value);
            return;
        case AssignableKey::Gateway:
            settings.setGateway(value);
            return;
        case AssignableKey::IpScheme:
            settings.setIpScheme(value);
            return;
        case AssignableKey::NtpIp:
            settings.setNtpIp(value);
            return;
        case AssignableKey::SyslogIp:
            settings.setSyslogIp(value);
            return;
        case AssignableKey::Nameserver:
            settings.setNameserver(value);
            return;
        case AssignableKey::UtcClock:
            settings.setUtcClock(value);
            return;
    }
}

// Room for a trace line after the largest datagram text.
constexpr std::size_t kLongestTraceLine = 64;

void writeToStandardOutput(const std::string& bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

}  // namespace

MessageDispatcher::MessageDispatcher(std::uint16_t port) : MessageDispatcher(port, systemShell()) {}

MessageDispatcher::MessageDispatcher(std::uint16_t port, DeviceShell& shell)
    : settings_(std::make_unique<Settings>(shell)) {
    consoleOutput_.reserve(kReceiveBufferSize + kLongestTraceLine);
    // The device is read before any socket exists.
    settings_->reload();
    const std::string interfaceName = settings_->getInterfaceName();
    broadcaster_ = std::make_unique<Broadcaster>(this, port, interfaceName);
}

MessageDispatcher::~MessageDispatcher() {
    broadcaster_.reset();  // closes the socket first
    settings_.reset();
}

void MessageDispatcher::run() {
    broadcaster_->listen();
}

void MessageDispatcher::onMessage(const char* data, std::int64_t length,
                                  std::uint32_t senderAddress) {
    message_.reset();
    // Every byte is kept as it came, zero bytes included; the request is read from the
    // received bytes themselves.
    const std::string_view text(data, static_cast<std::size_t>(length));
    consoleOutput_.assign(text);
    consoleOutput_ += '\n';
    const Decision decision = parseMessage(text);
    if (decision.action != Action::None) {
        // The device is read or changed next, and that prints: the text goes out first.
        writeToStandardOutput(consoleOutput_);
        consoleOutput_.clear();
        handleCommand(decision);
    }
    // Most datagrams need no action: their text and trace leave in one write.
    appendTrace(consoleOutput_, senderAddress, decision.understood);
    writeToStandardOutput(consoleOutput_);
}

Decision MessageDispatcher::parseMessage(std::string_view text) {
    return decideRequest(text, message_, settings_->getMac());
}

void MessageDispatcher::handleCommand(const Decision& decision) {
    switch (decision.action) {
        case Action::None:
            return;
        case Action::SendStatus:
            settings_->reload();
            sendStatus();
            return;
        case Action::Refuse:
            settings_->reload();
            reply(composeAck(message_.seqid, settings_->getMac(), false));
            return;
        case Action::Assign:
            settings_->reload();
            // COMPAT: ack-before-change
            // The tool learns of acceptance before anything is changed.
            reply(composeAck(message_.seqid, settings_->getMac(), true));
            applyAssignment();
            sleep(kSettleSeconds);
            return;
        case Action::Clear:
            break;
    }
    const std::string& serverKey = decision.request.serverKey;
    if (serverKey == key::kNtpIp) {
        settings_->clearNtpIp();
    } else if (serverKey == key::kSyslogIp) {
        settings_->clearSyslogIp();
    } else {
        settings_->clearNameserver();
    }
    reply(composeAck(message_.seqid, settings_->getMac(), true));
}

void MessageDispatcher::reply(const std::string& text) {
    broadcaster_->broadcast(text.c_str(), static_cast<std::int64_t>(text.size()));
}

void MessageDispatcher::sendStatus() {
    reply(composeStatus(message_.seqid, settings_->getMac(), readStatusValues(*settings_)));
}

void MessageDispatcher::applyAssignment() {
    // In the table's order; fields left empty keep the values just read. Setter results are
    // not used.
    for (const AssignableField& assignable : assignableFields()) {
        const std::string& value = message_.*assignable.field;
        if (!value.empty()) {
            applyField(*settings_, assignable.id, value);
        }
    }
    settings_->writeNetworkSettings();
}

}  // namespace lcfd
