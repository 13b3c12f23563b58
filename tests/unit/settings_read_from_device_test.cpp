#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "TestSupport.hpp"
#include "net/InterfaceSelection.hpp"
#include "settings/DeviceReading.hpp"
#include "settings/Settings.hpp"
#include "wire/Validators.hpp"

// The reading runs against stand-ins for every device tool, first on PATH. The pipelines'
// own helpers (grep, awk, cut, sed, cat) are the real ones. The status files under /var/run,
// the interface file and the host's interfaces (for the netmask) are not ours to change; the
// expectations for them are taken from the host as it is.

namespace lcfd {
namespace {

using test::CapturedOutput;
using test::captureOutput;
using test::ScopedEnvironmentVariable;
using test::StandInTools;
using test::ToolAnswer;

using Answers = std::map<std::string, ToolAnswer>;
using ToolTable = std::map<std::string, Answers>;

constexpr const char* kDeviceTools[] = {"tarnsetup", "route",       "ubootenv", "hostname", "ntpq",
                                        "ntpdc",     "timedatectl", "df",       "Get"};
constexpr const char* kDisplayTimeSettingsFile = "/etc/tarn/ConfigurationFiles/HardCodedHSSets.xml";

const char* const kRouteTable =
    "Kernel IP routing table\n"
    "Destination     Gateway         Genmask         Flags Metric Ref    Use Iface\n"
    "0.0.0.0         10.0.0.1        0.0.0.0         UG    0      0        0 br0\n"
    "10.0.0.0        0.0.0.0         255.255.255.0   U     0      0        0 br0\n";
const char* const kDiskUsage =
    "Filesystem      Size  Used Avail Use% Mounted on\n"
    "/dev/root       3.6G  1.2G  2.2G  35% /\n"
    "/dev/mmcblk0p1  7.4G  3.1G  4.0G  42% /media/mmc\n"
    "/dev/sdcard1    7.4G  2.7G  4.4G  37% /media/sdcard\n";
const char* const kNtpdcPeers =
    "     remote           local      st poll reach  delay   offset    disp\n"
    "=======================================================================\n"
    "*10.0.0.8        10.0.0.5         2   64  377 0.00052  0.000114 0.06012\n";
const char* const kNtpqPeers =
    "     remote           refid      st t when poll reach   delay   offset  jitter\n"
    "==============================================================================\n"
    " 127.127.1.0     .LOCL.          10 l   12   64  377    0.000    0.000   0.000\n"
    "*10.0.0.8        192.0.2.10       2 u   33   64  377    0.412    0.120   0.031\n";
const char* const kNtpqLocalClockOnly =
    "     remote           refid      st t when poll reach   delay   offset  jitter\n"
    "==============================================================================\n"
    "*127.127.1.0     .LOCL.          10 l   12   64  377    0.000    0.000   0.000\n";

bool hostFileExists(const char* path) {
    return access(path, F_OK) == 0;
}

// What the C library's stream reading of a host status file gives, or `fallback`.
std::string hostFirstLineOr(const char* path, const std::string& fallback) {
    std::ifstream file(path);
    if (!file.is_open()) {
        return fallback;
    }
    std::string line;
    std::getline(file, line);
    return line;
}

// The netmask the reading is bound to store: the host's own for "br0", when it has one.
std::string expectedNetmask(const std::string& before) {
    const std::string lookedUp = lookupInterfaceNetmask("br0");
    return isUsableAnswer(lookedUp) && isValidIpv4(lookedUp) ? lookedUp : before;
}

// What grep prints on standard error while the display-time command looks for its setting.
std::string displayTimeLookupComplaint() {
    const std::string command = std::string("grep HS_REALTIME_SEC_SINCE_1970_BEFORE ") +
                                kDisplayTimeSettingsFile + " 2>&1 >/dev/null";
    std::string text;
    // NOLINTNEXTLINE(cert-env33-c): grep run through the shell, as the daemon runs it
    if (std::FILE* pipe = popen(command.c_str(), "r")) {
        char chunk[256];
        std::size_t count = 0;
        while ((count = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) {
            text.append(chunk, count);
        }
        pclose(pipe);
    }
    return text;
}

std::string readingLog(int controllerType) {
    return "lcfd:Detected controller type: " + std::to_string(controllerType) +
           "\nlcfd:Finished reading network settings\n";
}

struct Reading {
    CapturedOutput output;
    std::vector<std::string> calls;
};

class ReadFromDevice : public testing::Test {
  protected:
    void SetUp() override {
        if (hostFileExists(kInterfaceFilePath)) {
            GTEST_SKIP() << kInterfaceFilePath << " exists on this host and selects the interface";
        }
    }

    // Runs readFromDevice with every device tool stood in for; a tool without answers in
    // `table` prints nothing.
    Reading read(const ToolTable& table) {
        StandInTools tools;
        for (const char* name : kDeviceTools) {
            const auto answers = table.find(name);
            tools.addTool(name, answers == table.end() ? Answers{} : answers->second);
            EXPECT_TRUE(tools.shadows(name)) << name;
        }
        Reading reading;
        reading.output = captureOutput([&] { settings.readFromDevice(); });
        reading.calls = tools.calls();
        return reading;
    }

    // Values the reading should replace or keep, set before it runs.
    void presetFields() {
        settings.setMac("preset-mac");
        settings.setIpScheme("preset-scheme");
        ASSERT_TRUE(settings.setNetmask("255.0.0.0"));
        ASSERT_TRUE(settings.setIp("192.168.9.9"));
        ASSERT_TRUE(settings.setGateway("192.168.9.1"));
        ASSERT_TRUE(settings.setNtpIp("192.168.9.2"));
        ASSERT_TRUE(settings.setSyslogIp("192.168.9.3"));
        ASSERT_TRUE(settings.setNameserver("192.168.9.4"));
        ASSERT_TRUE(settings.setAuxIp("192.168.9.5"));
        settings.setDeviceHostname("preset-device-host");
        settings.setHostname("preset-host");
        settings.setController("preset-controller");
        settings.setHousenames("preset-houses");
        settings.setNtpSync("preset-sync");
        settings.setSdUsage("preset-usage");
        settings.setSdkVersion("preset-sdk");
        settings.setMac1("preset-mac1");
        settings.setMac2("preset-mac2");
        settings.setUptime("preset-uptime");
        settings.setLoadavg("preset-loadavg");
        settings.setDisplayTime("preset-displaytime");
        settings.setControllerType(ControllerType::Qmt);
    }

    void expectStatusFilesRead() {
        EXPECT_EQ(settings.controllerRef(),
                  hostFirstLineOr(kControllerFilePath, "preset-controller"));
        EXPECT_EQ(settings.housenamesRef(), hostFirstLineOr(kHousenamesFilePath, "preset-houses"));
    }

    void expectImxOnlyFieldsEmpty() {
        EXPECT_EQ(settings.sdkversionRef(), "");
        EXPECT_EQ(settings.mac1Ref(), "");
        EXPECT_EQ(settings.mac2Ref(), "");
        EXPECT_EQ(settings.uptimeRef(), "");
        EXPECT_EQ(settings.loadavgRef(), "");
        EXPECT_EQ(settings.displaytimeRef(), "");
    }

    Settings settings;
};

// Answers shared by the platforms for the queries every platform runs.
Answers commonTarnsetupAnswers(const std::string& sdk) {
    return {{"getsdk", {sdk}},
            {"getmacaddr", {"00:1a:2b:3c:4d:5e\n"}},
            {"getipscheme", {"STATIC\n"}},
            {"getipaddr", {"10.0.0.5\n"}},
            {"gettimeserver", {"10.0.0.8\n"}},
            {"getsyslogserver", {"10.0.0.6\n"}},
            {"getnameserver", {"10.0.0.3\n"}},
            {"sdcard info usage", {"37%\n"}},
            {"getsdkversion", {"5.1.0 build 7\n"}},
            {"getmacaddr fromfuses primary", {"00:1a:2b:3c:4d:5f\n"}},
            {"getmacaddr fromfuses secondary", {"00:1a:2b:3c:4d:60\n"}}};
}

ToolTable platformTools(const std::string& sdk) {
    return {{"tarnsetup", commonTarnsetupAnswers(sdk)},
            {"route", {{"-n", {kRouteTable}}}},
            {"ubootenv",
             {{"/dev/mtd1 print timeserver", {"timeserver=10.0.0.18\n"}},
              {"/dev/mtd1 print serverip", {"serverip=10.0.0.16\n"}}}},
            {"hostname", {{"", {"ctrl-host\n"}}}},
            {"ntpq", {{"-pn", {kNtpqPeers}}}},
            {"ntpdc", {{"-pn", {kNtpdcPeers}}}},
            {"timedatectl",
             {{"",
               {"      Local time: Wed 2023-11-15 12:30:45 UTC\n"
                "  NTP synchronized: yes\n"}}}},
            {"df", {{"-h", {kDiskUsage}}}},
            {"Get", {{"", {"1700000000\n"}}}}};
}

// The queries every platform starts with, with the default interface.
std::vector<std::string> leadingCalls() {
    return {"tarnsetup getsdk", "tarnsetup getmacaddr", "tarnsetup getipscheme",
            "tarnsetup getipaddr", "route -n"};
}

std::vector<std::string> joined(std::vector<std::string> first,
                                const std::vector<std::string>& rest) {
    first.insert(first.end(), rest.begin(), rest.end());
    return first;
}

TEST_F(ReadFromDevice, GenericPlatform) {
    presetFields();
    const std::string netmask = expectedNetmask("255.0.0.0");
    const Reading reading = read(platformTools("sdk-unknown-to-us\n"));
    EXPECT_EQ(reading.calls, joined(leadingCalls(), {"ubootenv /dev/mtd1 print timeserver",
                                                     "ubootenv /dev/mtd1 print serverip",
                                                     "hostname", "ntpdc -pn", "df -h"}));
    EXPECT_EQ(reading.output.out, readingLog(1));
    EXPECT_EQ(reading.output.err, "");
    EXPECT_EQ(settings.getControllerType(), ControllerType::Generic);
    EXPECT_EQ(settings.macRef(), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(settings.ipschemeRef(), "STATIC");
    EXPECT_EQ(settings.netmaskRef(), netmask);
    EXPECT_EQ(settings.ipRef(), "10.0.0.5");
    EXPECT_EQ(settings.gatewayRef(), "10.0.0.1");
    EXPECT_EQ(settings.ntpipRef(), "10.0.0.18");
    EXPECT_EQ(settings.syslogipRef(), "10.0.0.16");
    EXPECT_EQ(settings.nameserverRef(), "10.0.0.16");  // the syslog server's answer again
    EXPECT_EQ(settings.devicehostnameRef(), "ctrl-host");
    EXPECT_EQ(settings.hostnameRef(), "ctrl-host");
    expectStatusFilesRead();
    EXPECT_EQ(settings.ntpsyncRef(), "yes");
    EXPECT_EQ(settings.sdusageRef(), "37%");  // the sdcard line, not the mmcblk one
    expectImxOnlyFieldsEmpty();
    EXPECT_EQ(settings.auxipRef(), "192.168.9.5");
    EXPECT_EQ(settings.pendingUtcClock(), "");
    EXPECT_EQ(settings.interfaceField(), "br0");
}

TEST_F(ReadFromDevice, AnEmptySdkAnswerIsGeneric) {
    const Reading reading = read(platformTools(""));
    EXPECT_EQ(settings.getControllerType(), ControllerType::Generic);
    EXPECT_EQ(reading.output.out, readingLog(1));
    EXPECT_EQ(reading.calls, joined(leadingCalls(), {"ubootenv /dev/mtd1 print timeserver",
                                                     "ubootenv /dev/mtd1 print serverip",
                                                     "hostname", "ntpdc -pn", "df -h"}));
}

TEST_F(ReadFromDevice, Imx2IsGenericByExactComparison) {
    const Reading reading = read(platformTools("imx2\n"));
    EXPECT_EQ(settings.getControllerType(), ControllerType::Generic);
    EXPECT_EQ(reading.output.out, readingLog(1));
}

TEST_F(ReadFromDevice, Arm9Platform) {
    presetFields();
    ToolTable tools = platformTools("arm9\n");
    tools["tarnsetup"]["getsyslogserver"] = {"10.1.1.5\n"};
    tools["ntpdc"]["-pn"] = {"     remote           local      st poll reach  delay\n"};
    const Reading reading = read(tools);
    EXPECT_EQ(reading.calls,
              joined(leadingCalls(), {"tarnsetup gettimeserver", "tarnsetup getsyslogserver",
                                      "hostname", "ntpdc -pn", "df -h"}));
    EXPECT_EQ(reading.output.out, readingLog(2));
    EXPECT_EQ(reading.output.err, "");
    EXPECT_EQ(settings.getControllerType(), ControllerType::Arm9);
    EXPECT_EQ(settings.ntpipRef(), "10.0.0.8");
    EXPECT_EQ(settings.syslogipRef(), "10.1.1.5");
    EXPECT_EQ(settings.nameserverRef(), "10.1.1.5");  // no name-server query on arm9
    EXPECT_EQ(settings.ntpsyncRef(), "no");           // no peer line begins with '*'
    EXPECT_EQ(settings.sdusageRef(), "42%");          // the mmcblk line
    expectImxOnlyFieldsEmpty();
}

TEST_F(ReadFromDevice, APublicResolverAsSyslogServerIsNotTakenAsNameServer) {
    presetFields();
    ToolTable tools = platformTools("arm9\n");
    tools["tarnsetup"]["getsyslogserver"] = {"8.8.8.8\n"};
    read(tools);
    EXPECT_EQ(settings.syslogipRef(), "8.8.8.8");
    EXPECT_EQ(settings.nameserverRef(), "192.168.9.4");
}

TEST_F(ReadFromDevice, ImxPlatform) {
    if (hostFileExists(kDisplayTimeSettingsFile)) {
        GTEST_SKIP() << kDisplayTimeSettingsFile << " exists on this host and feeds Get";
    }
    const ScopedEnvironmentVariable zone("TZ", "UTC");
    presetFields();
    const Reading reading = read(platformTools("imx\n"));
    EXPECT_EQ(reading.calls,
              joined(leadingCalls(), {"tarnsetup gettimeserver", "tarnsetup getsyslogserver",
                                      "tarnsetup getnameserver", "hostname", "ntpq -pn",
                                      "tarnsetup sdcard info usage", "tarnsetup getsdkversion",
                                      "tarnsetup getmacaddr fromfuses primary",
                                      "tarnsetup getmacaddr fromfuses secondary", "Get"}));
    EXPECT_EQ(reading.output.out, readingLog(3));
    // Only grep, looking for the display-time setting in a file this host does not have.
    EXPECT_EQ(reading.output.err, displayTimeLookupComplaint());
    EXPECT_EQ(settings.getControllerType(), ControllerType::Imx);
    EXPECT_EQ(settings.ntpipRef(), "10.0.0.8");
    EXPECT_EQ(settings.syslogipRef(), "10.0.0.6");
    EXPECT_EQ(settings.nameserverRef(), "10.0.0.3");
    EXPECT_EQ(settings.hostnameRef(), "ctrl-host");
    EXPECT_EQ(settings.ntpsyncRef(), "yes");
    EXPECT_EQ(settings.sdusageRef(), "37%");
    EXPECT_EQ(settings.sdkversionRef(), "5.1.0");
    EXPECT_EQ(settings.mac1Ref(), "00:1a:2b:3c:4d:5f");
    EXPECT_EQ(settings.mac2Ref(), "00:1a:2b:3c:4d:60");
    EXPECT_EQ(settings.getMac1(), "00:1A:2B:3C:4D:5F");
    // Whole first lines of the real files, line feed included.
    EXPECT_TRUE(
        std::regex_match(settings.uptimeRef(), std::regex("[0-9]+\\.[0-9]+ [0-9]+\\.[0-9]+\n")))
        << settings.uptimeRef();
    EXPECT_TRUE(std::regex_match(settings.loadavgRef(),
                                 std::regex("[0-9.]+ [0-9.]+ [0-9.]+ [0-9]+/[0-9]+ [0-9]+\n")))
        << settings.loadavgRef();
    EXPECT_EQ(settings.displaytimeRef(), "20231114221320");
}

TEST_F(ReadFromDevice, ImxVariantsOfTheAnswers) {
    const ScopedEnvironmentVariable zone("TZ", "UTC");
    presetFields();
    ToolTable tools = platformTools("imx\n");
    tools["tarnsetup"]["getnameserver"] = {"1.0.0.1\n"};
    tools["ntpq"]["-pn"] = {kNtpqLocalClockOnly};
    tools["tarnsetup"]["sdcard info usage"] = {"No card\n"};
    tools["Get"][""] = {"abc\n"};
    const Reading reading = read(tools);
    EXPECT_EQ(reading.output.out, readingLog(3));
    EXPECT_EQ(settings.nameserverRef(), "192.168.9.4");  // a public resolver is not taken
    EXPECT_EQ(settings.ntpsyncRef(), "no");              // the local clock is filtered out
    EXPECT_EQ(settings.sdusageRef(), "n/a");
    EXPECT_EQ(settings.displaytimeRef(), "");
}

TEST_F(ReadFromDevice, ImxWithoutNtpPeersOrUsageOrTime) {
    presetFields();
    ToolTable tools = platformTools("imx\n");
    tools["ntpq"]["-pn"] = {""};
    tools["tarnsetup"]["sdcard info usage"] = {""};
    tools["tarnsetup"]["getsdkversion"] = {"ERROR::no version\n"};
    tools["Get"][""] = {""};
    read(tools);
    EXPECT_EQ(settings.ntpsyncRef(), "no");
    EXPECT_EQ(settings.sdusageRef(), "n/a");
    EXPECT_EQ(settings.sdkversionRef(), "");  // emptied first, then the answer is unusable
    EXPECT_EQ(settings.displaytimeRef(), "");
}

TEST_F(ReadFromDevice, QmtPlatform) {
    presetFields();
    const Reading reading = read(platformTools("qmt\n"));
    EXPECT_EQ(reading.calls,
              joined(leadingCalls(), {"tarnsetup gettimeserver", "tarnsetup getsyslogserver",
                                      "hostname", "timedatectl"}));
    EXPECT_EQ(reading.output.out, readingLog(4));
    EXPECT_EQ(reading.output.err, "");
    EXPECT_EQ(settings.getControllerType(), ControllerType::Qmt);
    EXPECT_EQ(settings.ntpipRef(), "10.0.0.8");
    EXPECT_EQ(settings.syslogipRef(), "10.0.0.6");
    EXPECT_EQ(settings.nameserverRef(), "10.0.0.6");
    EXPECT_EQ(settings.ntpsyncRef(), "yes");
    EXPECT_EQ(settings.sdusageRef(), "n/a");
    expectImxOnlyFieldsEmpty();
}

TEST_F(ReadFromDevice, QmtStoresTheSynchronisationWordUnchecked) {
    ToolTable tools = platformTools("qmt\n");
    tools["timedatectl"][""] = {"  NTP synchronized: ERROR::x\n"};
    read(tools);
    EXPECT_EQ(settings.ntpsyncRef(), "ERROR::x");
    tools["timedatectl"][""] = {"  NTP synchronized: no\n"};
    read(tools);
    EXPECT_EQ(settings.ntpsyncRef(), "no");
    tools["timedatectl"][""] = {""};
    read(tools);
    EXPECT_EQ(settings.ntpsyncRef(), "");
}

TEST_F(ReadFromDevice, AnUnusableSdkAnswerLeavesTheTypeUnknown) {
    presetFields();
    const Reading reading = read(platformTools("ERROR::x\n"));
    EXPECT_EQ(reading.calls,
              joined(leadingCalls(), {"tarnsetup gettimeserver", "tarnsetup getsyslogserver",
                                      "hostname", "ntpdc -pn", "df -h"}));
    EXPECT_EQ(reading.output.out, readingLog(0));
    EXPECT_EQ(reading.output.err, "");
    EXPECT_EQ(settings.getControllerType(), ControllerType::Unknown);
    EXPECT_EQ(settings.ntpipRef(), "10.0.0.8");
    EXPECT_EQ(settings.syslogipRef(), "10.0.0.6");
    EXPECT_EQ(settings.nameserverRef(), "10.0.0.6");
    EXPECT_EQ(settings.ntpsyncRef(), "yes");
    EXPECT_EQ(settings.sdusageRef(), "37%");  // the sdcard form of df
    expectImxOnlyFieldsEmpty();
}

TEST_F(ReadFromDevice, InvalidOrEmptyAddressesAreNotStored) {
    presetFields();
    ToolTable tools = platformTools("arm9\n");
    tools["tarnsetup"]["getipaddr"] = {"10.0.0.300\n"};
    tools["route"]["-n"] = {"0.0.0.0         gateway.lan     0.0.0.0         UG    0 0 0 br0\n"};
    read(tools);
    EXPECT_EQ(settings.ipRef(), "192.168.9.9");
    EXPECT_EQ(settings.gatewayRef(), "192.168.9.1");
    tools["tarnsetup"]["getipaddr"] = {""};
    tools["route"]["-n"] = {""};
    read(tools);
    EXPECT_EQ(settings.ipRef(), "192.168.9.9");
    EXPECT_EQ(settings.gatewayRef(), "192.168.9.1");
}

TEST_F(ReadFromDevice, EmptyAnswersEmptyTheUnvalidatedFields) {
    presetFields();
    ToolTable tools = platformTools("arm9\n");
    tools["tarnsetup"]["gettimeserver"] = {""};
    tools["tarnsetup"]["getsyslogserver"] = {""};
    tools["tarnsetup"]["getmacaddr"] = {""};
    tools["tarnsetup"]["getipscheme"] = {""};
    tools["hostname"][""] = {""};
    tools["df"]["-h"] = {""};
    read(tools);
    EXPECT_EQ(settings.ntpipRef(), "");
    EXPECT_EQ(settings.syslogipRef(), "");
    EXPECT_EQ(settings.nameserverRef(), "");
    EXPECT_EQ(settings.macRef(), "");
    EXPECT_EQ(settings.ipschemeRef(), "");
    EXPECT_EQ(settings.devicehostnameRef(), "");
    EXPECT_EQ(settings.hostnameRef(), "");
    EXPECT_EQ(settings.sdusageRef(), "n/a");
}

TEST_F(ReadFromDevice, UnusableAnswersLeaveTheFieldsAsTheyWere) {
    presetFields();
    ToolTable tools = platformTools("arm9\n");
    const ToolAnswer failure{"ERROR::device busy\n"};
    tools["tarnsetup"]["getmacaddr"] = failure;
    tools["tarnsetup"]["getipscheme"] = failure;
    tools["tarnsetup"]["getipaddr"] = failure;
    tools["tarnsetup"]["gettimeserver"] = failure;
    tools["tarnsetup"]["getsyslogserver"] = failure;
    tools["hostname"][""] = failure;
    tools["ntpdc"]["-pn"] = {"*ERROR::x\n"};
    tools["df"]["-h"] = {"/dev/mmcblk0p1 ERROR::x ERROR::x ERROR::x ERROR::x /\n"};
    const Reading reading = read(tools);
    EXPECT_EQ(reading.output.out, readingLog(2));
    EXPECT_EQ(reading.output.err, "");
    EXPECT_EQ(settings.macRef(), "preset-mac");
    EXPECT_EQ(settings.ipschemeRef(), "preset-scheme");
    EXPECT_EQ(settings.ipRef(), "192.168.9.9");
    EXPECT_EQ(settings.ntpipRef(), "192.168.9.2");
    EXPECT_EQ(settings.syslogipRef(), "192.168.9.3");
    EXPECT_EQ(settings.nameserverRef(), "192.168.9.4");
    EXPECT_EQ(settings.devicehostnameRef(), "preset-device-host");
    EXPECT_EQ(settings.hostnameRef(), "preset-host");
    EXPECT_EQ(settings.ntpsyncRef(), "no");
    EXPECT_EQ(settings.sdusageRef(), "n/a");
}

TEST_F(ReadFromDevice, AnswersAreFirstWordsOfFirstLines) {
    ToolTable tools = platformTools("  arm9 board\nsecond line\n");
    tools["tarnsetup"]["getmacaddr"] = {"\t00:1a:2b:3c:4d:5e extra words\n"};
    tools["hostname"][""] = {"host name with blanks\n"};
    read(tools);
    EXPECT_EQ(settings.getControllerType(), ControllerType::Arm9);
    EXPECT_EQ(settings.macRef(), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(settings.hostnameRef(), "host");
}

TEST_F(ReadFromDevice, ASecondReadingResetsThePerReadingFields) {
    const ScopedEnvironmentVariable zone("TZ", "UTC");
    read(platformTools("imx\n"));
    ASSERT_EQ(settings.sdkversionRef(), "5.1.0");
    ToolTable tools = platformTools("ERROR::x\n");
    tools["ntpdc"]["-pn"] = {""};
    tools["df"]["-h"] = {""};
    const Reading reading = read(tools);
    EXPECT_EQ(reading.output.out, readingLog(0));
    EXPECT_EQ(settings.getControllerType(), ControllerType::Unknown);
    EXPECT_EQ(settings.ntpsyncRef(), "no");
    EXPECT_EQ(settings.sdusageRef(), "n/a");
    expectImxOnlyFieldsEmpty();
}

TEST_F(ReadFromDevice, ReloadLeavesEveryChangePredicateFalse) {
    presetFields();
    settings.takeSnapshot();
    StandInTools tools;
    for (const auto& [name, answers] : platformTools("arm9\n")) {
        tools.addTool(name, answers);
    }
    const CapturedOutput output = captureOutput([&] { settings.reload(); });
    EXPECT_EQ(output.out, readingLog(2));
    EXPECT_FALSE(settings.ntpipChanged());
    EXPECT_FALSE(settings.syslogipChanged());
    EXPECT_FALSE(settings.nameserverChanged());
    EXPECT_FALSE(settings.networkChanged());
    EXPECT_FALSE(settings.ipschemeChanged());
    EXPECT_FALSE(settings.hostnameChanged());
    const Settings* snapshot = settings.getSnapshot();
    ASSERT_NE(snapshot, nullptr);
    EXPECT_EQ(snapshot->ntpipRef(), "10.0.0.8");
    EXPECT_EQ(snapshot->syslogipRef(), "10.0.0.6");
    EXPECT_EQ(snapshot->hostnameRef(), "ctrl-host");
    EXPECT_EQ(snapshot->devicehostnameRef(), "ctrl-host");
    EXPECT_EQ(snapshot->controllerRef(), settings.controllerRef());
    // The snapshot copies only devicehostname .. ipscheme.
    EXPECT_EQ(snapshot->ntpsyncRef(), "");
    EXPECT_EQ(snapshot->sdusageRef(), "");
    EXPECT_EQ(snapshot->housenamesRef(), "");
    EXPECT_EQ(snapshot->getControllerType(), ControllerType::Unknown);
    ASSERT_TRUE(settings.setNtpIp("10.0.0.9"));
    EXPECT_TRUE(settings.ntpipChanged());
}

}  // namespace
}  // namespace lcfd
