#include "protocol/MessageDispatcher.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstdio>

#include "protocol/MessageFormat.hpp"
#include "protocol/Replies.hpp"
#include "protocol/Request.hpp"

namespace lcfd {
namespace {

// After an accepted ASSIGN the device gets this long to settle before the next datagram.
constexpr unsigned kSettleSeconds = 5;

}  // namespace

std::string composeTrace(std::uint32_t senderAddress, bool understood) {
    in_addr address{};
    address.s_addr = senderAddress;
    std::string trace = "[";
    trace += inet_ntoa(address);
    trace += understood ? "] Message understood... \n\n" : "] Message not understood... \n\n";
    return trace;
}

MessageDispatcher::MessageDispatcher(std::uint16_t port) : settings(std::make_unique<Settings>()) {
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
    message = Message{};
    // Every byte is kept as it came, zero bytes included.
    const std::string text(data, static_cast<std::size_t>(length));
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    const bool understood = parseMessage(text);
    const std::string trace = composeTrace(senderAddress, understood);
    std::fwrite(trace.data(), 1, trace.size(), stdout);
}

bool MessageDispatcher::parseMessage(const std::string& text) {
    std::string header;
    std::string rest;
    splitAt(text, kFieldSeparator, header, rest);
    if (!checkHeader(header)) {
        return false;
    }
    return handleCommand(rest);
}

bool MessageDispatcher::handleCommand(const std::string& text) {
    const Request request = parseRequest(text, message);
    switch (request.command) {
        case Command::Ack:
        case Command::Status:
            return true;  // replies, other daemons' or our own
        case Command::Unknown:
            return false;
        case Command::Query:
            if (!request.parsed) {
                return false;
            }
            if (!isAddressedTo(request, message, settings->getMac())) {
                return true;
            }
            settings->reload();
            sendStatus();
            return true;
        case Command::Assign:
        case Command::Clear:
            break;
    }

    if (!isAddressedTo(request, message, settings->getMac())) {
        return true;
    }
    if (!request.parsed) {
        settings->reload();
        reply(composeAck(message.seqid, settings->getMac(), false));
        return false;
    }
    if (request.command == Command::Assign) {
        settings->reload();
        // The tool learns of acceptance before anything is changed.
        reply(composeAck(message.seqid, settings->getMac(), true));
        applyAssignment();
        sleep(kSettleSeconds);
        return true;
    }
    if (request.serverKey == key::kNtpIp) {
        settings->clearNtpIp();
    } else if (request.serverKey == key::kSyslogIp) {
        settings->clearSyslogIp();
    } else {
        settings->clearNameserver();
    }
    reply(composeAck(message.seqid, settings->getMac(), true));
    return true;
}

void MessageDispatcher::reply(const std::string& text) {
    broadcaster->broadcast(text.c_str(), static_cast<std::int64_t>(text.size()));
}

void MessageDispatcher::sendStatus() {
    // Values are read in reply order; the clock is read live when its turn comes.
    StatusValues values;
    values.ip = settings->getIp();
    values.netmask = settings->getNetmask();
    values.gateway = settings->getGateway();
    values.hostname = settings->getHostname();
    values.ipscheme = settings->getIpScheme();
    values.ntpip = settings->getNtpIp();
    values.controller = settings->getController();
    values.housenames = settings->getHousenames();
    values.syslogip = settings->getSyslogIp();
    values.nameserver = settings->getNameserver();
    values.ntpsync = settings->getNtpSync();
    values.sdusage = settings->getSdUsage();
    values.sdkversion = settings->getSdkVersion();
    values.mac1 = settings->getMac1();
    values.mac2 = settings->getMac2();
    values.uptime = settings->getUptime();
    values.loadavg = settings->getLoadavg();
    values.utcclock = settings->getUtcClock();
    values.displaytime = settings->getDisplayTime();
    reply(composeStatus(message.seqid, settings->getMac(), values));
}

void MessageDispatcher::applyAssignment() {
    // Fixed order; fields left empty keep the values just read. Setter results are not used.
    if (!message.ip.empty()) {
        settings->setIp(message.ip);
    }
    if (!message.netmask.empty()) {
        settings->setNetmask(message.netmask);
    }
    if (!message.gateway.empty()) {
        settings->setGateway(message.gateway);
    }
    if (!message.ipscheme.empty()) {
        settings->setIpScheme(message.ipscheme);
    }
    if (!message.ntpip.empty()) {
        settings->setNtpIp(message.ntpip);
    }
    if (!message.syslogip.empty()) {
        settings->setSyslogIp(message.syslogip);
    }
    if (!message.nameserver.empty()) {
        settings->setNameserver(message.nameserver);
    }
    if (!message.utcclock.empty()) {
        settings->setUtcClock(message.utcclock);
    }
    settings->writeNetworkSettings();
}

}  // namespace lcfd
