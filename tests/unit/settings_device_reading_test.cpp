#include <gtest/gtest.h>

#include <string>

#include "TestSupport.hpp"
#include "settings/DeviceReading.hpp"

namespace lcfd {
namespace {

using test::ScopedEnvironmentVariable;
using test::TempDir;

constexpr ControllerType kOutOfRange = static_cast<ControllerType>(7);

TEST(UsableAnswer, AnErrorMarkerAnywhereMakesItUnusable) {
    EXPECT_FALSE(isUsableAnswer("ERROR::popen"));
    EXPECT_FALSE(isUsableAnswer("ERROR::x"));
    EXPECT_FALSE(isUsableAnswer("value ERROR:: later"));
    EXPECT_FALSE(isUsableAnswer("10.0.0.1ERROR::"));
}

TEST(UsableAnswer, EverythingElseIsUsable) {
    EXPECT_TRUE(isUsableAnswer(""));
    EXPECT_TRUE(isUsableAnswer("10.0.0.1"));
    EXPECT_TRUE(isUsableAnswer("ERROR:"));
    EXPECT_TRUE(isUsableAnswer("ERROR: x"));
    EXPECT_TRUE(isUsableAnswer("error::x"));
    EXPECT_TRUE(isUsableAnswer("ERROR: :x"));
}

TEST(ControllerTypeFromSdk, ExactWordsNameThePlatforms) {
    EXPECT_EQ(controllerTypeFromSdk("imx"), ControllerType::Imx);
    EXPECT_EQ(controllerTypeFromSdk("qmt"), ControllerType::Qmt);
    EXPECT_EQ(controllerTypeFromSdk("arm9"), ControllerType::Arm9);
}

TEST(ControllerTypeFromSdk, AnythingElseIsGeneric) {
    EXPECT_EQ(controllerTypeFromSdk("imx2"), ControllerType::Generic);
    EXPECT_EQ(controllerTypeFromSdk("IMX"), ControllerType::Generic);
    EXPECT_EQ(controllerTypeFromSdk("imx\n"), ControllerType::Generic);
    EXPECT_EQ(controllerTypeFromSdk(" qmt"), ControllerType::Generic);
    EXPECT_EQ(controllerTypeFromSdk("arm"), ControllerType::Generic);
    EXPECT_EQ(controllerTypeFromSdk(""), ControllerType::Generic);
    EXPECT_EQ(controllerTypeFromSdk("generic"), ControllerType::Generic);
}

TEST(ControllerTypeNumbers, AreFixed) {
    EXPECT_EQ(static_cast<int>(ControllerType::Unknown), 0);
    EXPECT_EQ(static_cast<int>(ControllerType::Generic), 1);
    EXPECT_EQ(static_cast<int>(ControllerType::Arm9), 2);
    EXPECT_EQ(static_cast<int>(ControllerType::Imx), 3);
    EXPECT_EQ(static_cast<int>(ControllerType::Qmt), 4);
}

TEST(WithInterface, TheDefaultBridgeAddsNothing) {
    EXPECT_EQ(withInterface("tarnsetup getmacaddr", "br0"), "tarnsetup getmacaddr");
}

TEST(WithInterface, AnyOtherInterfaceIsAppendedAfterABlank) {
    EXPECT_EQ(withInterface("tarnsetup getmacaddr", "eth1"), "tarnsetup getmacaddr eth1");
    EXPECT_EQ(withInterface("tarnsetup getipaddr", "eth0"), "tarnsetup getipaddr eth0");
    EXPECT_EQ(withInterface("tarnsetup getipscheme", "br01"), "tarnsetup getipscheme br01");
    EXPECT_EQ(withInterface("tarnsetup getipscheme", "BR0"), "tarnsetup getipscheme BR0");
    EXPECT_EQ(withInterface("tarnsetup getipscheme", ""), "tarnsetup getipscheme ");
}

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

TEST(SdUsageFromAnswer, NoOnImxMeansNotAvailable) {
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Imx, "No"), "n/a");
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Imx, "None"), "n/a");
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Imx, "SdNo"), "n/a");
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Imx, "no"), "no");  // case as written
}

TEST(SdUsageFromAnswer, AUsableNonEmptyAnswerIsTaken) {
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Imx, "37%"), "37%");
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Arm9, "42%"), "42%");
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Generic, "5%"), "5%");
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Unknown, "100%"), "100%");
    // Only the imx tool's answer is searched for "No".
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Arm9, "No"), "No");
}

TEST(SdUsageFromAnswer, EmptyOrUnusableIsNotAvailable) {
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Imx, ""), "n/a");
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Arm9, ""), "n/a");
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Generic, "ERROR::popen"), "n/a");
    EXPECT_EQ(sdUsageFromAnswer(ControllerType::Imx, "ERROR::x"), "n/a");
}

// --- Display time ------------------------------------------------------------------------

TEST(DisplayTime, SecondsShownAsLocalTimeInUtc) {
    const ScopedEnvironmentVariable zone("TZ", "UTC");
    std::string shown = "unchanged";
    EXPECT_TRUE(displayTimeFromSeconds("1700000000", shown));
    EXPECT_EQ(shown, "20231114221320");
    EXPECT_TRUE(displayTimeFromSeconds("0", shown));
    EXPECT_EQ(shown, "19700101000000");
}

TEST(DisplayTime, UsesTheProcessTimeZone) {
    const ScopedEnvironmentVariable zone("TZ", "EET-2");
    std::string shown;
    EXPECT_TRUE(displayTimeFromSeconds("1700000000", shown));
    EXPECT_EQ(shown, "20231115001320");
}

TEST(DisplayTime, ReadsTheNumberAsStrtolDoes) {
    const ScopedEnvironmentVariable zone("TZ", "UTC");
    std::string shown;
    EXPECT_TRUE(displayTimeFromSeconds("  -5", shown));
    EXPECT_EQ(shown, "19691231235955");
    EXPECT_TRUE(displayTimeFromSeconds("\t+1700000000", shown));
    EXPECT_EQ(shown, "20231114221320");
    EXPECT_TRUE(displayTimeFromSeconds("1700000000abc", shown));
    EXPECT_EQ(shown, "20231114221320");
    EXPECT_TRUE(displayTimeFromSeconds("0x10", shown));  // base 10: the 0 only
    EXPECT_EQ(shown, "19700101000000");
}

TEST(DisplayTime, NoDigitsMeansNoValue) {
    const ScopedEnvironmentVariable zone("TZ", "UTC");
    std::string shown = "unchanged";
    EXPECT_FALSE(displayTimeFromSeconds("abc", shown));
    EXPECT_FALSE(displayTimeFromSeconds("", shown));
    EXPECT_FALSE(displayTimeFromSeconds("  ", shown));
    EXPECT_FALSE(displayTimeFromSeconds("-", shown));
    EXPECT_FALSE(displayTimeFromSeconds("ERROR::popen", shown));
    EXPECT_EQ(shown, "unchanged");
}

TEST(DisplayTime, OutOfRangeMeansNoValue) {
    const ScopedEnvironmentVariable zone("TZ", "UTC");
    std::string shown = "unchanged";
    EXPECT_FALSE(displayTimeFromSeconds("99999999999999999999", shown));
    EXPECT_FALSE(displayTimeFromSeconds("-99999999999999999999", shown));
    EXPECT_EQ(shown, "unchanged");
}

TEST(DisplayTime, ACountTheCalendarCannotHoldMeansNoValue) {
    // Fits a long, but its year does not fit the calendar's int: localtime_r fails.
    const ScopedEnvironmentVariable zone("TZ", "UTC");
    std::string shown = "unchanged";
    EXPECT_FALSE(displayTimeFromSeconds("9223372036854775807", shown));
    EXPECT_EQ(shown, "unchanged");
}

// --- Status files ------------------------------------------------------------------------

TEST(ReadFirstLine, TakesTheFirstLineWithoutItsLineFeed) {
    const TempDir dir;
    const std::string path = dir.writeFile("controller", "hall-3\nsecond\n");
    std::string line = "old";
    EXPECT_TRUE(readFirstLine(path.c_str(), line));
    EXPECT_EQ(line, "hall-3");
}

TEST(ReadFirstLine, KeepsACarriageReturnAndTabs) {
    const TempDir dir;
    const std::string path = dir.writeFile("housenames", "north\tsouth\r\nwest\n");
    std::string line;
    EXPECT_TRUE(readFirstLine(path.c_str(), line));
    EXPECT_EQ(line, "north\tsouth\r");
}

TEST(ReadFirstLine, AFileWithoutLineFeedIsOneLine) {
    const TempDir dir;
    const std::string path = dir.writeFile("controller", "no end");
    std::string line;
    EXPECT_TRUE(readFirstLine(path.c_str(), line));
    EXPECT_EQ(line, "no end");
}

TEST(ReadFirstLine, AnEmptyFileGivesTheEmptyText) {
    const TempDir dir;
    const std::string path = dir.writeFile("controller", "");
    std::string line = "old";
    EXPECT_TRUE(readFirstLine(path.c_str(), line));
    EXPECT_EQ(line, "");
}

TEST(ReadFirstLine, AnEmptyFirstLineGivesTheEmptyText) {
    const TempDir dir;
    const std::string path = dir.writeFile("controller", "\nsecond\n");
    std::string line = "old";
    EXPECT_TRUE(readFirstLine(path.c_str(), line));
    EXPECT_EQ(line, "");
}

TEST(ReadFirstLine, AMissingFileLeavesTheValueAlone) {
    const TempDir dir;
    const std::string path = dir.path() + "/missing";
    std::string line = "old";
    EXPECT_FALSE(readFirstLine(path.c_str(), line));
    EXPECT_EQ(line, "old");
}

}  // namespace
}  // namespace lcfd
