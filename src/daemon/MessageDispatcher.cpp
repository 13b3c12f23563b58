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
    : settings(std::make_unique<Settings>(shell)) {
    consoleOutput.reserve(kReceiveBufferSize + kLongestTraceLine);
    // The device is read before any socket exists.
    settings->reload();
    const std::string interfaceName = settings->getInterfaceName();
    broadcaster = std::make_unique<Broadcaster>(this, port, interfaceName);
}

MessageDispatcher::~MessageDispatcher() {
    broadcaster.reset();  // closes the socket first
    settings.reset();
}

void MessageDispatcher::run() {
    broadcaster->listen();
}

void MessageDispatcher::onMessage(const char* data, std::int64_t length,
                                  std::uint32_t senderAddress) {
    message.reset();
    // Every byte is kept as it came, zero bytes included; the request is read from the
    // received bytes themselves.
    const std::string_view text(data, static_cast<std::size_t>(length));
    consoleOutput.assign(text);
    consoleOutput += '\n';
    const Decision decision = parseMessage(text);
    if (decision.action != Action::None) {
        // The device is read or changed next, and that prints: the text goes out first.
        writeToStandardOutput(consoleOutput);
        consoleOutput.clear();
        handleCommand(decision);
    }
    // Most datagrams need no action: their text and trace leave in one write.
    appendTrace(consoleOutput, senderAddress, decision.understood);
    writeToStandardOutput(consoleOutput);
}

Decision MessageDispatcher::parseMessage(std::string_view text) {
    return decideRequest(text, message, settings->getMac());
}

void MessageDispatcher::handleCommand(const Decision& decision) {
    switch (decision.action) {
        case Action::None:
            return;
        case Action::SendStatus:
            settings->reload();
            sendStatus();
            return;
        case Action::Refuse:
            settings->reload();
            reply(composeAck(message.seqid, settings->getMac(), false));
            return;
        case Action::Assign:
            settings->reload();
            // COMPAT: ack-before-change
            // The tool learns of acceptance before anything is changed.
            reply(composeAck(message.seqid, settings->getMac(), true));
            applyAssignment();
            sleep(kSettleSeconds);
            return;
        case Action::Clear:
            break;
    }
    const std::string& serverKey = decision.request.serverKey;
    if (serverKey == key::kNtpIp) {
        settings->clearNtpIp();
    } else if (serverKey == key::kSyslogIp) {
        settings->clearSyslogIp();
    } else {
        settings->clearNameserver();
    }
    reply(composeAck(message.seqid, settings->getMac(), true));
}

void MessageDispatcher::reply(const std::string& text) {
    broadcaster->broadcast(text.c_str(), static_cast<std::int64_t>(text.size()));
}

void MessageDispatcher::sendStatus() {
    reply(composeStatus(message.seqid, settings->getMac(), readStatusValues(*settings)));
}

void MessageDispatcher::applyAssignment() {
    // In the table's order; fields left empty keep the values just read. Setter results are
    // not used.
    for (const AssignableField& assignable : assignableFields()) {
        const std::string& value = message.*assignable.field;
        if (!value.empty()) {
            applyField(*settings, assignable.id, value);
        }
    }
    settings->writeNetworkSettings();
}

}  // namespace lcfd
