#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "TestSupport.hpp"
#include "settings/DeviceReading.hpp"

namespace lcfd {
namespace {

using test::ScopedEnvironmentVariable;
using test::TempDir;

constexpr ControllerType kOutOfRange = static_cast<ControllerType>(7);

// Each row of a table names its own test.
template <typename Case>
std::string caseName(const ::testing::TestParamInfo<Case>& param) {
    return param.param.name;
}

struct UsableAnswerCase {
    const char* name;
    const char* answer;
    bool usable;
};

void PrintTo(const UsableAnswerCase& row, std::ostream* out) {
    *out << row.name;
}

const UsableAnswerCase kUsableAnswerCases[] = {
    // An error marker anywhere makes an answer unusable.
    {"ShellFailureIsUnusable", "ERROR::popen", false},
    {"ErrorMarkerFirstIsUnusable", "ERROR::x", false},
    {"ErrorMarkerInTheMiddleIsUnusable", "value ERROR:: later", false},
    {"ErrorMarkerLastIsUnusable", "10.0.0.1ERROR::", false},
    // Everything else is usable.
    {"EmptyAnswerIsUsable", "", true},
    {"AddressIsUsable", "10.0.0.1", true},
    {"SingleColonIsUsable", "ERROR:", true},
    {"SingleColonAndTextIsUsable", "ERROR: x", true},
    {"LowerCaseMarkerIsUsable", "error::x", true},
    {"SeparatedColonsAreUsable", "ERROR: :x", true},
};

class UsableAnswer : public ::testing::TestWithParam<UsableAnswerCase> {};

TEST_P(UsableAnswer, IsUsableOrNot) {
    EXPECT_EQ(isUsableAnswer(GetParam().answer), GetParam().usable);
}

INSTANTIATE_TEST_SUITE_P(IsUsableAnswer, UsableAnswer, ::testing::ValuesIn(kUsableAnswerCases),
                         caseName<UsableAnswerCase>);

struct SdkCase {
    const char* name;
    const char* answer;
    ControllerType type;
};

void PrintTo(const SdkCase& row, std::ostream* out) {
    *out << row.name;
}

const SdkCase kSdkCases[] = {
    // Exact words name the platforms.
    {"ImxNamesImx", "imx", ControllerType::Imx},
    {"QmtNamesQmt", "qmt", ControllerType::Qmt},
    {"Arm9NamesArm9", "arm9", ControllerType::Arm9},
    // Anything else is generic.
    {"LongerWordIsGeneric", "imx2", ControllerType::Generic},
    {"UpperCaseWordIsGeneric", "IMX", ControllerType::Generic},
    {"TrailingLineFeedIsGeneric", "imx\n", ControllerType::Generic},
    {"LeadingBlankIsGeneric", " qmt", ControllerType::Generic},
    {"ShorterWordIsGeneric", "arm", ControllerType::Generic},
    {"EmptyAnswerIsGeneric", "", ControllerType::Generic},
    {"GenericIsGeneric", "generic", ControllerType::Generic},
};

class SdkAnswer : public ::testing::TestWithParam<SdkCase> {};

TEST_P(SdkAnswer, NamesThePlatform) {
    EXPECT_EQ(controllerTypeFromSdk(GetParam().answer), GetParam().type);
}

INSTANTIATE_TEST_SUITE_P(ControllerTypeFromSdk, SdkAnswer, ::testing::ValuesIn(kSdkCases),
                         caseName<SdkCase>);

TEST(ControllerTypeNumbers, AreFixed) {
    EXPECT_EQ(static_cast<int>(ControllerType::Unknown), 0);
    EXPECT_EQ(static_cast<int>(ControllerType::Generic), 1);
    EXPECT_EQ(static_cast<int>(ControllerType::Arm9), 2);
    EXPECT_EQ(static_cast<int>(ControllerType::Imx), 3);
    EXPECT_EQ(static_cast<int>(ControllerType::Qmt), 4);
}

struct InterfaceCase {
    const char* name;
    const char* query;
    const char* interfaceName;
    const char* command;
};

void PrintTo(const InterfaceCase& row, std::ostream* out) {
    *out << row.name;
}

const InterfaceCase kInterfaceCases[] = {
    {"TheDefaultBridgeAddsNothing", "tarnsetup getmacaddr", "br0", "tarnsetup getmacaddr"},
    // Any other interface is appended after a blank.
    {"Eth1IsAppended", "tarnsetup getmacaddr", "eth1", "tarnsetup getmacaddr eth1"},
    {"Eth0IsAppended", "tarnsetup getipaddr", "eth0", "tarnsetup getipaddr eth0"},
    {"LongerBridgeNameIsAppended", "tarnsetup getipscheme", "br01", "tarnsetup getipscheme br01"},
    {"UpperCaseBridgeNameIsAppended", "tarnsetup getipscheme", "BR0", "tarnsetup getipscheme BR0"},
    {"EmptyNameIsAppended", "tarnsetup getipscheme", "", "tarnsetup getipscheme "},
};

class InterfaceQuery : public ::testing::TestWithParam<InterfaceCase> {};

TEST_P(InterfaceQuery, IsTheExactCommand) {
    EXPECT_EQ(withInterface(GetParam().query, GetParam().interfaceName), GetParam().command);
}

INSTANTIATE_TEST_SUITE_P(WithInterface, InterfaceQuery, ::testing::ValuesIn(kInterfaceCases),
                         caseName<InterfaceCase>);

TEST(PublicResolver, TheFourAddressesAreRecognisedExactly) {
    EXPECT_TRUE(isPublicResolver("1.1.1.1"));
    EXPECT_TRUE(isPublicResolver("8.8.8.8"));
    EXPECT_TRUE(isPublicResolver("1.0.0.1"));
    EXPECT_TRUE(isPublicResolver("8.8.4.4"));
    EXPECT_FALSE(isPublicResolver("9.9.9.9"));
    EXPECT_FALSE(isPublicResolver("8.8.8.8\n"));
    EXPECT_FALSE(isPublicResolver(" 1.1.1.1"));
    EXPECT_FALSE(isPublicResolver("1.1.1.10"));
    EXPECT_FALSE(isPublicResolver(""));
}

TEST(DeviceQueries, FixedCommandTextsByteForByte) {
    EXPECT_STREQ(query::kSdk, "tarnsetup getsdk");
    EXPECT_STREQ(query::kMacAddress, "tarnsetup getmacaddr");
    EXPECT_STREQ(query::kIpScheme, "tarnsetup getipscheme");
    EXPECT_STREQ(query::kIpAddress, "tarnsetup getipaddr");
    EXPECT_STREQ(query::kGateway, "route -n | grep ^0.0.0.0 | awk '{ print $2 }'");
    EXPECT_STREQ(query::kBootEnvTimeServer,
                 "ubootenv /dev/mtd1 print timeserver | cut -d\"=\" -f2");
    EXPECT_STREQ(query::kTimeServer, "tarnsetup gettimeserver");
    EXPECT_STREQ(query::kBootEnvSyslogServer,
                 "ubootenv /dev/mtd1 print serverip | cut -d\"=\" -f2");
    EXPECT_STREQ(query::kSyslogServer, "tarnsetup getsyslogserver");
    EXPECT_STREQ(query::kNameServer, "tarnsetup getnameserver");
    EXPECT_STREQ(query::kHostname, "hostname");
    EXPECT_STREQ(query::kNtpqSync, "ntpq -pn | grep -v LOCL | grep ^*");
    EXPECT_STREQ(query::kTimedatectlSync,
                 "timedatectl | grep \"NTP synchronized\" | awk '{ print $3 }'");
    EXPECT_STREQ(query::kNtpdcSync, "ntpdc -pn |grep ^*");
    EXPECT_STREQ(query::kSdCardUsage, "tarnsetup sdcard info usage");
    EXPECT_STREQ(query::kMmcblkUsage, "df -h | grep mmcblk | awk '{ print$5 }'");
    EXPECT_STREQ(query::kSdcardDfUsage, "df -h | grep sdcard | awk '{ print$5 }'");
    EXPECT_STREQ(query::kSdkVersion, "tarnsetup getsdkversion");
    EXPECT_STREQ(query::kPrimaryFuseMac, "tarnsetup getmacaddr fromfuses primary");
    EXPECT_STREQ(query::kSecondaryFuseMac, "tarnsetup getmacaddr fromfuses secondary");
    EXPECT_STREQ(query::kUptime, "cat /proc/uptime");
    EXPECT_STREQ(query::kLoadavg, "cat /proc/loadavg");
    EXPECT_STREQ(query::kDisplayTimeSeconds,
                 "Get $(grep HS_REALTIME_SEC_SINCE_1970_BEFORE "
                 "/etc/tarn/ConfigurationFiles/HardCodedHSSets.xml | sed -e "
                 "'s/.*value=\"\\([^\"]*\\)\".*/\\1/')");
    EXPECT_STREQ(kControllerFilePath, "/var/run/controller");
    EXPECT_STREQ(kHousenamesFilePath, "/var/run/housenames");
}

TEST(DeviceQueries, TimeServerFromTheBootEnvironmentOnGenericOnly) {
    EXPECT_STREQ(timeServerQuery(ControllerType::Generic),
                 "ubootenv /dev/mtd1 print timeserver | cut -d\"=\" -f2");
    for (const ControllerType type : {ControllerType::Unknown, ControllerType::Arm9,
                                      ControllerType::Imx, ControllerType::Qmt, kOutOfRange}) {
        EXPECT_STREQ(timeServerQuery(type), "tarnsetup gettimeserver") << static_cast<int>(type);
    }
}

TEST(DeviceQueries, SyslogServerFromTheBootEnvironmentOnGenericOnly) {
    EXPECT_STREQ(syslogServerQuery(ControllerType::Generic),
                 "ubootenv /dev/mtd1 print serverip | cut -d\"=\" -f2");
    for (const ControllerType type : {ControllerType::Unknown, ControllerType::Arm9,
                                      ControllerType::Imx, ControllerType::Qmt, kOutOfRange}) {
        EXPECT_STREQ(syslogServerQuery(type), "tarnsetup getsyslogserver")
            << static_cast<int>(type);
    }
}

TEST(DeviceQueries, NtpSynchronisationByPlatform) {
    EXPECT_STREQ(ntpSyncQuery(ControllerType::Imx), "ntpq -pn | grep -v LOCL | grep ^*");
    EXPECT_STREQ(ntpSyncQuery(ControllerType::Qmt),
                 "timedatectl | grep \"NTP synchronized\" | awk '{ print $3 }'");
    for (const ControllerType type :
         {ControllerType::Unknown, ControllerType::Generic, ControllerType::Arm9, kOutOfRange}) {
        EXPECT_STREQ(ntpSyncQuery(type), "ntpdc -pn |grep ^*") << static_cast<int>(type);
    }
}

TEST(DeviceQueries, SdCardUsageByPlatform) {
    EXPECT_STREQ(sdUsageQuery(ControllerType::Imx), "tarnsetup sdcard info usage");
    EXPECT_STREQ(sdUsageQuery(ControllerType::Arm9), "df -h | grep mmcblk | awk '{ print$5 }'");
    EXPECT_STREQ(sdUsageQuery(ControllerType::Unknown), "df -h | grep sdcard | awk '{ print$5 }'");
    EXPECT_STREQ(sdUsageQuery(ControllerType::Generic), "df -h | grep sdcard | awk '{ print$5 }'");
    EXPECT_EQ(sdUsageQuery(ControllerType::Qmt), nullptr);
}

TEST(MeansSynchronised, AUsableNonEmptyAnswer) {
    EXPECT_TRUE(meansSynchronised("*10.0.0.9"));
    EXPECT_TRUE(meansSynchronised("no"));  // any selected line counts
    EXPECT_FALSE(meansSynchronised(""));
    EXPECT_FALSE(meansSynchronised("ERROR::popen"));
}

struct SdUsageCase {
    const char* name;
    ControllerType type;
    const char* answer;
    const char* usage;
};

void PrintTo(const SdUsageCase& row, std::ostream* out) {
    *out << row.name;
}

const SdUsageCase kSdUsageCases[] = {
    // "No" on imx means not available.
    {"NoOnImxIsNotAvailable", ControllerType::Imx, "No", "n/a"},
    {"NoneOnImxIsNotAvailable", ControllerType::Imx, "None", "n/a"},
    {"SdNoOnImxIsNotAvailable", ControllerType::Imx, "SdNo", "n/a"},
    {"LowerCaseNoOnImxIsTaken", ControllerType::Imx, "no", "no"},  // case as written
    // A usable non-empty answer is taken.
    {"ImxAnswerIsTaken", ControllerType::Imx, "37%", "37%"},
    {"Arm9AnswerIsTaken", ControllerType::Arm9, "42%", "42%"},
    {"GenericAnswerIsTaken", ControllerType::Generic, "5%", "5%"},
    {"UnknownAnswerIsTaken", ControllerType::Unknown, "100%", "100%"},
    // Only the imx tool's answer is searched for "No".
    {"NoOnArm9IsTaken", ControllerType::Arm9, "No", "No"},
    // An empty or unusable answer is not available.
    {"EmptyOnImxIsNotAvailable", ControllerType::Imx, "", "n/a"},
    {"EmptyOnArm9IsNotAvailable", ControllerType::Arm9, "", "n/a"},
    {"ShellFailureOnGenericIsNotAvailable", ControllerType::Generic, "ERROR::popen", "n/a"},
    {"ErrorMarkerOnImxIsNotAvailable", ControllerType::Imx, "ERROR::x", "n/a"},
};

class SdUsage : public ::testing::TestWithParam<SdUsageCase> {};

TEST_P(SdUsage, IsTheAnswerOrNotAvailable) {
    EXPECT_EQ(sdUsageFromAnswer(GetParam().type, GetParam().answer), GetParam().usage);
}

INSTANTIATE_TEST_SUITE_P(SdUsageFromAnswer, SdUsage, ::testing::ValuesIn(kSdUsageCases),
                         caseName<SdUsageCase>);

// --- Display time ------------------------------------------------------------------------

// Each answer is read in the row's time zone into a display time that was "unchanged".
struct DisplayTimeCase {
    const char* name;
    const char* zone;
    const char* seconds;
    bool read;
    const char* shown;
};

void PrintTo(const DisplayTimeCase& row, std::ostream* out) {
    *out << row.name;
}

const DisplayTimeCase kDisplayTimeCases[] = {
    // Seconds are shown as local time, here in UTC.
    {"SecondsShownAsLocalTimeInUtc", "UTC", "1700000000", true, "20231114221320"},
    {"ZeroShownAsLocalTimeInUtc", "UTC", "0", true, "19700101000000"},
    {"UsesTheProcessTimeZone", "EET-2", "1700000000", true, "20231115001320"},
    // The number is read as strtoll reads it.
    {"LeadingBlanksAndAMinusSign", "UTC", "  -5", true, "19691231235955"},
    {"LeadingTabAndAPlusSign", "UTC", "\t+1700000000", true, "20231114221320"},
    {"TrailingLetters", "UTC", "1700000000abc", true, "20231114221320"},
    {"HexadecimalPrefix", "UTC", "0x10", true, "19700101000000"},  // base 10: the 0 only
    // Past 2038: 64-bit seconds and a 64-bit time on every board, 32-bit ones included.
    {"FirstSecondPastA32BitCount", "UTC", "2147483648", true, "20380119031408"},
    {"TheYear2100", "UTC", "4102444800", true, "21000101000000"},
    // No digits means no value.
    {"LettersGiveNoValue", "UTC", "abc", false, "unchanged"},
    {"EmptyAnswerGivesNoValue", "UTC", "", false, "unchanged"},
    {"BlanksGiveNoValue", "UTC", "  ", false, "unchanged"},
    {"LoneMinusSignGivesNoValue", "UTC", "-", false, "unchanged"},
    {"ShellFailureGivesNoValue", "UTC", "ERROR::popen", false, "unchanged"},
    // Out of range means no value.
    {"TooLargeGivesNoValue", "UTC", "99999999999999999999", false, "unchanged"},
    {"TooSmallGivesNoValue", "UTC", "-99999999999999999999", false, "unchanged"},
    // Fits 64 bits, but its year does not fit the calendar's int: localtime_r fails.
    {"ACountTheCalendarCannotHoldMeansNoValue", "UTC", "9223372036854775807", false, "unchanged"},
};

class DisplayTime : public ::testing::TestWithParam<DisplayTimeCase> {};

TEST_P(DisplayTime, IsShownOrLeftUnchanged) {
    const ScopedEnvironmentVariable zone("TZ", GetParam().zone);
    std::string shown = "unchanged";
    EXPECT_EQ(displayTimeFromSeconds(GetParam().seconds, shown), GetParam().read);
    EXPECT_EQ(shown, GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(DisplayTimeFromSeconds, DisplayTime,
                         ::testing::ValuesIn(kDisplayTimeCases), caseName<DisplayTimeCase>);

// --- Status files ------------------------------------------------------------------------

// Each file is read into a line that was "old"; a row without content has no file at all.
struct FirstLineCase {
    const char* name;
    const char* file;
    const char* content;
    bool read;
    const char* line;
};

void PrintTo(const FirstLineCase& row, std::ostream* out) {
    *out << row.name;
}

const FirstLineCase kFirstLineCases[] = {
    {"TakesTheFirstLineWithoutItsLineFeed", "controller", "hall-3\nsecond\n", true, "hall-3"},
    {"KeepsACarriageReturnAndTabs", "housenames", "north\tsouth\r\nwest\n", true, "north\tsouth\r"},
    {"AFileWithoutLineFeedIsOneLine", "controller", "no end", true, "no end"},
    {"AnEmptyFileGivesTheEmptyText", "controller", "", true, ""},
    {"AnEmptyFirstLineGivesTheEmptyText", "controller", "\nsecond\n", true, ""},
    {"AMissingFileLeavesTheValueAlone", "missing", nullptr, false, "old"},
};

class FirstLine : public ::testing::TestWithParam<FirstLineCase> {};

TEST_P(FirstLine, IsReadOrLeftAlone) {
    const TempDir dir;
    const std::string path = GetParam().content != nullptr
                                 ? dir.writeFile(GetParam().file, GetParam().content)
                                 : dir.path() + "/" + GetParam().file;
    std::string line = "old";
    EXPECT_EQ(readFirstLine(path.c_str(), line), GetParam().read);
    EXPECT_EQ(line, GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(ReadFirstLine, FirstLine, ::testing::ValuesIn(kFirstLineCases),
                         caseName<FirstLineCase>);

}  // namespace
}  // namespace lcfd
