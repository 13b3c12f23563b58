#include <gtest/gtest.h>

#include <string>

#include "settings/Settings.hpp"
#include "wire/MessageFormat.hpp"
#include "wire/Validators.hpp"

namespace lcfd {
namespace {

// A record whose every assignable field holds a value of its own, distinct from the defaults.
void fillEveryField(Settings& settings) {
    settings.setHousenames("house A\n");
    settings.setDeviceHostname("device-host");
    settings.setHostname("reported-host");
    ASSERT_TRUE(settings.setIp("10.0.0.5"));
    ASSERT_TRUE(settings.setNetmask("255.255.255.0"));
    ASSERT_TRUE(settings.setGateway("10.0.0.1"));
    ASSERT_TRUE(settings.setAuxIp("10.0.0.99"));
    settings.setMac("00:1a:2b:3c:4d:5e");
    ASSERT_TRUE(settings.setNtpIp("10.0.0.8"));
    settings.setController("controller-7");
    ASSERT_TRUE(settings.setSyslogIp("10.0.0.6"));
    ASSERT_TRUE(settings.setNameserver("10.0.0.2"));
    settings.setIpScheme("DHCP");
    settings.setNtpSync("yes");
    settings.setSdUsage("42%");
    settings.setSdkVersion("5.1.0");
    settings.setMac1("00:1a:2b:3c:4d:5f");
    settings.setMac2("00:1a:2b:3c:4d:60");
    settings.setUptime("3605.21 7011.40\n");
    settings.setLoadavg("0.10 0.20 0.30 1/80 1234\n");
    settings.setDisplayTime("20231114221320");
    settings.setControllerType(ControllerType::Imx);
}

TEST(SettingsDefaults, NewObjectHoldsTheDocumentedDefaults) {
    const Settings settings;
    EXPECT_EQ(settings.housenamesRef(), "");
    EXPECT_EQ(settings.devicehostnameRef(), "");
    EXPECT_EQ(settings.hostnameRef(), "none");
    EXPECT_EQ(settings.ipRef(), "");
    EXPECT_EQ(settings.netmaskRef(), "");
    EXPECT_EQ(settings.gatewayRef(), "");
    EXPECT_EQ(settings.auxipRef(), "");
    EXPECT_EQ(settings.macRef(), "");
    EXPECT_EQ(settings.ntpipRef(), "");
    EXPECT_EQ(settings.controllerRef(), "");
    EXPECT_EQ(settings.syslogipRef(), "");
    EXPECT_EQ(settings.nameserverRef(), "");
    EXPECT_EQ(settings.ipschemeRef(), "STATIC");
    EXPECT_EQ(settings.ntpsyncRef(), "");
    EXPECT_EQ(settings.sdusageRef(), "");
    EXPECT_EQ(settings.pendingUtcClock(), "");
    EXPECT_EQ(settings.interfaceField(), "br0");
    EXPECT_EQ(settings.sdkversionRef(), "");
    EXPECT_EQ(settings.mac1Ref(), "");
    EXPECT_EQ(settings.mac2Ref(), "");
    EXPECT_EQ(settings.uptimeRef(), "");
    EXPECT_EQ(settings.loadavgRef(), "");
    EXPECT_EQ(settings.displaytimeRef(), "");
    EXPECT_EQ(settings.getSnapshot(), nullptr);
    EXPECT_EQ(static_cast<int>(settings.getControllerType()), 0);
    EXPECT_FALSE(settings.hasPendingUtcClock());
}

TEST(SettingsDefaults, GettersOfANewObject) {
    const Settings settings;
    EXPECT_EQ(settings.getHousenames(), "");
    EXPECT_EQ(settings.getHostname(), "none");
    EXPECT_EQ(settings.getIp(), "");
    EXPECT_EQ(settings.getNetmask(), "");
    EXPECT_EQ(settings.getGateway(), "");
    EXPECT_EQ(settings.getMac(), "");
    EXPECT_EQ(settings.getNtpIp(), "");
    EXPECT_EQ(settings.getController(), "");
    EXPECT_EQ(settings.getSyslogIp(), "");
    EXPECT_EQ(settings.getNameserver(), "");
    EXPECT_EQ(settings.getIpScheme(), "STATIC");
    EXPECT_EQ(settings.getNtpSync(), "");
    EXPECT_EQ(settings.getSdUsage(), "");
    EXPECT_EQ(settings.getSdkVersion(), "");
    EXPECT_EQ(settings.getMac1(), "");
    EXPECT_EQ(settings.getMac2(), "");
    EXPECT_EQ(settings.getUptime(), "");
    EXPECT_EQ(settings.getLoadavg(), "");
    EXPECT_EQ(settings.getDisplayTime(), "");
}

TEST(SettingsSerialNumber, IsTheFixedTextOnEveryObject) {
    Settings fresh;
    Settings filled;
    fillEveryField(filled);
    EXPECT_EQ(fresh.getSerialNumber(), "_serialNumber");
    EXPECT_EQ(filled.getSerialNumber(), "_serialNumber");
}

// --- Text helpers ------------------------------------------------------------------------

TEST(CleanText, RemovesCarriageReturnsLineFeedsAndTabsWhereverTheyStand) {
    EXPECT_EQ(cleanText("a\tb\r\nc"), "abc");
    EXPECT_EQ(cleanText("\r\n\t"), "");
    EXPECT_EQ(cleanText("\tlead mid\rdle trail\n"), "lead middle trail");
    EXPECT_EQ(cleanText(""), "");
}

TEST(CleanText, KeepsBlanksAndEveryOtherByte) {
    EXPECT_EQ(cleanText(" a  b "), " a  b ");
    EXPECT_EQ(cleanText("v\vf\f"), "v\vf\f");
    EXPECT_EQ(cleanText(std::string("n\0ul", 4)), std::string("n\0ul", 4));
    EXPECT_EQ(cleanText("\xe4\xf6"), "\xe4\xf6");
}

TEST(UpperCased, ChangesOnlyTheLettersAToZ) {
    EXPECT_EQ(upperCased("00:1a:2b:3c:4d:5e"), "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(upperCased("abcxyz ABC 09 -_\t\n"), "ABCXYZ ABC 09 -_\t\n");
    EXPECT_EQ(upperCased("\xe4\xf6\xfc"), "\xe4\xf6\xfc");
    EXPECT_EQ(upperCased(""), "");
}

TEST(IsValidIpv4, AcceptsFourDecimalNumbersUpTo255) {
    EXPECT_TRUE(isValidIpv4("192.168.1.20"));
    EXPECT_TRUE(isValidIpv4("0.0.0.0"));
    EXPECT_TRUE(isValidIpv4("255.255.255.255"));
    EXPECT_TRUE(isValidIpv4("10.0.0.1"));
}

TEST(IsValidIpv4, RejectsEverythingElse) {
    EXPECT_FALSE(isValidIpv4(""));
    EXPECT_FALSE(isValidIpv4("192.168.1"));
    EXPECT_FALSE(isValidIpv4("192.168.1.20.5"));
    EXPECT_FALSE(isValidIpv4("256.0.0.1"));
    EXPECT_FALSE(isValidIpv4("10.0.0.300"));
    EXPECT_FALSE(isValidIpv4("192.168.1.20\n"));
    EXPECT_FALSE(isValidIpv4(std::string("192.168.1.20\0;reboot", 20)));
    EXPECT_FALSE(isValidIpv4(std::string("11.11.101.1\0", 12)));
    EXPECT_FALSE(isValidIpv4(" 192.168.1.20"));
    EXPECT_FALSE(isValidIpv4("192.168.1.20 "));
    EXPECT_FALSE(isValidIpv4("192.168..20"));
    EXPECT_FALSE(isValidIpv4("192.168.1."));
    EXPECT_FALSE(isValidIpv4("-1.0.0.0"));
    EXPECT_FALSE(isValidIpv4("0x0a.0.0.1"));
    EXPECT_FALSE(isValidIpv4("a.b.c.d"));
    EXPECT_FALSE(isValidIpv4("3232235796"));  // inet_aton would take it; inet_pton does not
    EXPECT_FALSE(isValidIpv4("010.0.0.1"));   // leading zeros are refused by inet_pton
    EXPECT_FALSE(isValidIpv4("::1"));
}

// --- Getters -----------------------------------------------------------------------------

TEST(SettingsGetters, GetMacUpperCasesWithoutCleaning) {
    Settings settings;
    settings.setMac("00:1a:2b:3c:4d:5e");
    EXPECT_EQ(settings.getMac(), "00:1A:2B:3C:4D:5E");
    settings.setMac("00:1a:2b:3c:4d:5e\n");
    EXPECT_EQ(settings.getMac(), "00:1A:2B:3C:4D:5E\n");
    settings.setMac("\t00:aa\r");
    EXPECT_EQ(settings.getMac(), "\t00:AA\r");
    EXPECT_EQ(settings.macRef(), "\t00:aa\r");
}

TEST(SettingsGetters, GetMacFollowsEveryChangeOfTheMac) {
    Settings settings;
    settings.setMac("00:1a:2b:3c:4d:5e");
    const std::string& mac = settings.getMac();
    EXPECT_EQ(mac, "00:1A:2B:3C:4D:5E");
    settings.setMac("0a:0b");
    EXPECT_EQ(settings.getMac(), "0A:0B");
    settings.setMac("");
    EXPECT_EQ(settings.getMac(), "");
}

TEST(SettingsGetters, GetMac1AndGetMac2CleanThenUpperCase) {
    Settings settings;
    settings.setMac1("00:1a:2b:3c:4d:5f\n");
    settings.setMac2("\t00:1a:2b:\r3c:4d:60\r\n");
    EXPECT_EQ(settings.getMac1(), "00:1A:2B:3C:4D:5F");
    EXPECT_EQ(settings.getMac2(), "00:1A:2B:3C:4D:60");
    EXPECT_EQ(settings.mac1Ref(), "00:1a:2b:3c:4d:5f\n");
    EXPECT_EQ(settings.mac2Ref(), "\t00:1a:2b:\r3c:4d:60\r\n");
}

TEST(SettingsGetters, CleaningGettersRemoveLineEndsAndTabsOnly) {
    Settings settings;
    settings.setUptime("3605.21 7011.40\n");
    settings.setController("a\tb\r\nc");
    settings.setHousenames("house one\thouse two\r\n");
    settings.setSdkVersion("5.1.0-rc1\n");
    settings.setLoadavg("0.10 0.20 0.30 1/80 1234\n");
    settings.setDisplayTime("\t20231114221320\r");
    EXPECT_EQ(settings.getUptime(), "3605.21 7011.40");
    EXPECT_EQ(settings.getController(), "abc");
    EXPECT_EQ(settings.getHousenames(), "house onehouse two");
    EXPECT_EQ(settings.getSdkVersion(), "5.1.0-rc1");
    EXPECT_EQ(settings.getLoadavg(), "0.10 0.20 0.30 1/80 1234");
    EXPECT_EQ(settings.getDisplayTime(), "20231114221320");
}

TEST(SettingsGetters, CleaningGettersDoNotUpperCase) {
    Settings settings;
    settings.setController("ctrl-a");
    settings.setHousenames("house-b");
    settings.setSdkVersion("v5.1.0a");
    EXPECT_EQ(settings.getController(), "ctrl-a");
    EXPECT_EQ(settings.getHousenames(), "house-b");
    EXPECT_EQ(settings.getSdkVersion(), "v5.1.0a");
}

TEST(SettingsGetters, UntouchedGettersReturnTheStoredTextAsItIs) {
    Settings settings;
    settings.setHostname("my\thost\r\n");
    settings.setIpScheme("dhcp\n");
    settings.setNtpSync("yes\t\n");
    settings.setSdUsage("42%\r\n");
    EXPECT_EQ(settings.getHostname(), "my\thost\r\n");
    EXPECT_EQ(settings.getIpScheme(), "dhcp\n");
    EXPECT_EQ(settings.getNtpSync(), "yes\t\n");
    EXPECT_EQ(settings.getSdUsage(), "42%\r\n");

    ASSERT_TRUE(settings.setIp("10.0.0.5"));
    ASSERT_TRUE(settings.setNetmask("255.255.255.0"));
    ASSERT_TRUE(settings.setGateway("10.0.0.1"));
    ASSERT_TRUE(settings.setNtpIp("10.0.0.8"));
    ASSERT_TRUE(settings.setSyslogIp("10.0.0.6"));
    ASSERT_TRUE(settings.setNameserver("10.0.0.2"));
    EXPECT_EQ(settings.getIp(), "10.0.0.5");
    EXPECT_EQ(settings.getNetmask(), "255.255.255.0");
    EXPECT_EQ(settings.getGateway(), "10.0.0.1");
    EXPECT_EQ(settings.getNtpIp(), "10.0.0.8");
    EXPECT_EQ(settings.getSyslogIp(), "10.0.0.6");
    EXPECT_EQ(settings.getNameserver(), "10.0.0.2");
}

TEST(SettingsGetters, HostnameKeepsItsCase) {
    Settings settings;
    EXPECT_TRUE(settings.setHostname("Controller-Hall3"));
    EXPECT_EQ(settings.getHostname(), "Controller-Hall3");
}

// --- Setters -----------------------------------------------------------------------------

TEST(SettingsSetters, SetIpStoresAValidAddress) {
    Settings settings;
    EXPECT_TRUE(settings.setIp("192.168.1.20"));
    EXPECT_EQ(settings.ipRef(), "192.168.1.20");
}

TEST(SettingsSetters, SetIpRejectsAndKeepsTheOldValue) {
    Settings settings;
    ASSERT_TRUE(settings.setIp("192.168.1.20"));
    EXPECT_FALSE(settings.setIp("192.168.1"));
    EXPECT_EQ(settings.ipRef(), "192.168.1.20");
    EXPECT_FALSE(settings.setIp(""));
    EXPECT_EQ(settings.ipRef(), "192.168.1.20");
    EXPECT_FALSE(settings.setIp("192.168.1.21\n"));
    EXPECT_EQ(settings.ipRef(), "192.168.1.20");
    EXPECT_FALSE(settings.setIp(" 192.168.1.21"));
    EXPECT_EQ(settings.ipRef(), "192.168.1.20");
    EXPECT_FALSE(settings.setIp("192.168.1.21 "));
    EXPECT_EQ(settings.ipRef(), "192.168.1.20");
}

TEST(SettingsSetters, RejectedValueOnAFreshObjectLeavesTheFieldEmpty) {
    Settings settings;
    EXPECT_FALSE(settings.setIp("192.168.1"));
    EXPECT_EQ(settings.ipRef(), "");
}

TEST(SettingsSetters, SetNetmaskStoresAValidAddress) {
    Settings settings;
    EXPECT_TRUE(settings.setNetmask("255.255.255.0"));
    EXPECT_EQ(settings.netmaskRef(), "255.255.255.0");
    EXPECT_FALSE(settings.setNetmask("255.255.255"));
    EXPECT_FALSE(settings.setNetmask("255.255.255.0\n"));
    EXPECT_FALSE(settings.setNetmask(""));
    EXPECT_FALSE(settings.setNetmask(" 255.255.0.0"));
    EXPECT_EQ(settings.netmaskRef(), "255.255.255.0");
}

// One validating setter and the field it fills.
struct ValidatedField {
    const char* name;
    bool (Settings::*set)(const std::string&);
    const std::string& (Settings::*stored)() const;
};

class ValidatingSetter : public testing::TestWithParam<ValidatedField> {};

TEST_P(ValidatingSetter, StoresValidAddressesAndRejectsTheRest) {
    const ValidatedField field = GetParam();
    Settings settings;
    EXPECT_TRUE((settings.*field.set)("192.168.1.20"));
    EXPECT_EQ((settings.*field.stored)(), "192.168.1.20");
    for (const std::string rejected : {"192.168.1", "", "192.168.1.21\n", " 192.168.1.21",
                                       "192.168.1.21 ", "300.1.1.1", "host.example"}) {
        EXPECT_FALSE((settings.*field.set)(rejected)) << rejected;
        EXPECT_EQ((settings.*field.stored)(), "192.168.1.20") << rejected;
    }
    EXPECT_TRUE((settings.*field.set)("0.0.0.0"));
    EXPECT_EQ((settings.*field.stored)(), "0.0.0.0");
}

INSTANTIATE_TEST_SUITE_P(
    EveryAddressField, ValidatingSetter,
    testing::Values(ValidatedField{"ip", &Settings::setIp, &Settings::ipRef},
                    ValidatedField{"netmask", &Settings::setNetmask, &Settings::netmaskRef},
                    ValidatedField{"gateway", &Settings::setGateway, &Settings::gatewayRef},
                    ValidatedField{"auxip", &Settings::setAuxIp, &Settings::auxipRef},
                    ValidatedField{"ntpip", &Settings::setNtpIp, &Settings::ntpipRef},
                    ValidatedField{"syslogip", &Settings::setSyslogIp, &Settings::syslogipRef},
                    ValidatedField{"nameserver", &Settings::setNameserver,
                                   &Settings::nameserverRef}),
    [](const testing::TestParamInfo<ValidatedField>& param) {
        return std::string(param.param.name);
    });

TEST(SettingsSetters, SetIpSchemeStoresAnyTextUnchanged) {
    Settings settings;
    settings.setIpScheme("dhcp");
    EXPECT_EQ(settings.ipschemeRef(), "dhcp");
    EXPECT_EQ(settings.getIpScheme(), "dhcp");
    settings.setIpScheme("");
    EXPECT_EQ(settings.getIpScheme(), "");
    settings.setIpScheme(" Static\n");
    EXPECT_EQ(settings.getIpScheme(), " Static\n");
}

TEST(SettingsSetters, SetHostnameAndSetHousenamesAlwaysSucceed) {
    Settings settings;
    EXPECT_TRUE(settings.setHostname(""));
    EXPECT_EQ(settings.hostnameRef(), "");
    EXPECT_TRUE(settings.setHostname("hall 3\n"));
    EXPECT_EQ(settings.hostnameRef(), "hall 3\n");
    EXPECT_TRUE(settings.setHousenames("north\tsouth\n"));
    EXPECT_EQ(settings.housenamesRef(), "north\tsouth\n");
    EXPECT_TRUE(settings.setHousenames(""));
    EXPECT_EQ(settings.housenamesRef(), "");
}

TEST(SettingsSetters, UnvalidatedSettersStoreTheArgumentAsItIs) {
    Settings settings;
    settings.setMac("not a mac\n");
    settings.setDeviceHostname("dev\thost");
    settings.setController("ctrl\r\n");
    EXPECT_EQ(settings.macRef(), "not a mac\n");
    EXPECT_EQ(settings.devicehostnameRef(), "dev\thost");
    EXPECT_EQ(settings.controllerRef(), "ctrl\r\n");
    // The device host name is kept for the snapshot only; the reported one is separate.
    EXPECT_EQ(settings.getHostname(), "none");
}

// --- Change predicates -------------------------------------------------------------------

// A filled record with a snapshot of itself: every predicate starts out false.
class ChangePredicates : public testing::Test {
  protected:
    void SetUp() override {
        fillEveryField(settings);
        settings.takeSnapshot();
        ASSERT_NE(settings.getSnapshot(), nullptr);
    }

    // The predicates in a fixed order, to compare the whole set at once.
    std::string answers() const {
        std::string text;
        text += settings.ntpipChanged() ? "ntpip " : "";
        text += settings.syslogipChanged() ? "syslogip " : "";
        text += settings.nameserverChanged() ? "nameserver " : "";
        text += settings.networkChanged() ? "network " : "";
        text += settings.ipschemeChanged() ? "ipscheme " : "";
        text += settings.hostnameChanged() ? "hostname " : "";
        return text;
    }

    Settings settings;
};

TEST_F(ChangePredicates, AllFalseRightAfterTakingASnapshot) {
    EXPECT_EQ(answers(), "");
    EXPECT_FALSE(settings.hasPendingUtcClock());
}

TEST_F(ChangePredicates, SyslogServerCountsAsANetworkSetting) {
    ASSERT_TRUE(settings.setSyslogIp("10.0.0.7"));
    EXPECT_TRUE(settings.networkChanged());
    EXPECT_TRUE(settings.syslogipChanged());
    EXPECT_FALSE(settings.ipschemeChanged());
    EXPECT_EQ(answers(), "syslogip network ");
}

TEST_F(ChangePredicates, TimeServerChangesOnlyItsOwnPredicate) {
    ASSERT_TRUE(settings.setNtpIp("10.0.0.9"));
    EXPECT_EQ(answers(), "ntpip ");
}

TEST_F(ChangePredicates, NameServerChangesOnlyItsOwnPredicate) {
    ASSERT_TRUE(settings.setNameserver("10.0.0.3"));
    EXPECT_EQ(answers(), "nameserver ");
}

TEST_F(ChangePredicates, AddressNetmaskAndGatewayAreNetworkSettings) {
    ASSERT_TRUE(settings.setIp("10.0.0.50"));
    EXPECT_EQ(answers(), "network ");
    ASSERT_TRUE(settings.setIp("10.0.0.5"));
    EXPECT_EQ(answers(), "");
    ASSERT_TRUE(settings.setNetmask("255.255.0.0"));
    EXPECT_EQ(answers(), "network ");
    ASSERT_TRUE(settings.setNetmask("255.255.255.0"));
    ASSERT_TRUE(settings.setGateway("10.0.0.254"));
    EXPECT_EQ(answers(), "network ");
}

TEST_F(ChangePredicates, SchemeIsANetworkSettingComparedByteForByte) {
    settings.setIpScheme("dhcp");  // the snapshot holds "DHCP"
    EXPECT_EQ(answers(), "network ipscheme ");
    settings.setIpScheme("DHCP");
    EXPECT_EQ(answers(), "");
    settings.setIpScheme("DHCP ");
    EXPECT_EQ(answers(), "network ipscheme ");
}

TEST_F(ChangePredicates, HostnameChangesOnlyItsOwnPredicate) {
    settings.setHostname("other-host");
    EXPECT_EQ(answers(), "hostname ");
}

TEST_F(ChangePredicates, FieldsWithoutAPredicateChangeNothing) {
    settings.setHousenames("other house");
    settings.setMac("00:00:00:00:00:01");
    settings.setController("other controller");
    settings.setDeviceHostname("other device host");
    ASSERT_TRUE(settings.setAuxIp("10.9.9.9"));
    settings.setNtpSync("no");
    settings.setSdUsage("n/a");
    settings.setControllerType(ControllerType::Qmt);
    EXPECT_EQ(answers(), "");
}

TEST_F(ChangePredicates, ANewSnapshotTakesTheChangesIn) {
    ASSERT_TRUE(settings.setSyslogIp("10.0.0.7"));
    ASSERT_TRUE(settings.setNtpIp("10.0.0.9"));
    settings.setHostname("renamed");
    ASSERT_EQ(answers(), "ntpip syslogip network hostname ");
    settings.takeSnapshot();
    EXPECT_EQ(answers(), "");
}

TEST(SettingsSnapshot, HoldsOnlyTheDeviceReadFieldsAndDefaultsForTheRest) {
    Settings settings;
    fillEveryField(settings);
    settings.takeSnapshot();
    const Settings* snapshot = settings.getSnapshot();
    ASSERT_NE(snapshot, nullptr);
    EXPECT_EQ(snapshot->devicehostnameRef(), "device-host");
    EXPECT_EQ(snapshot->hostnameRef(), "reported-host");
    EXPECT_EQ(snapshot->ipRef(), "10.0.0.5");
    EXPECT_EQ(snapshot->netmaskRef(), "255.255.255.0");
    EXPECT_EQ(snapshot->gatewayRef(), "10.0.0.1");
    EXPECT_EQ(snapshot->auxipRef(), "10.0.0.99");
    EXPECT_EQ(snapshot->macRef(), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(snapshot->ntpipRef(), "10.0.0.8");
    EXPECT_EQ(snapshot->controllerRef(), "controller-7");
    EXPECT_EQ(snapshot->syslogipRef(), "10.0.0.6");
    EXPECT_EQ(snapshot->nameserverRef(), "10.0.0.2");
    EXPECT_EQ(snapshot->ipschemeRef(), "DHCP");
    EXPECT_EQ(snapshot->housenamesRef(), "");
    EXPECT_EQ(snapshot->ntpsyncRef(), "");
    EXPECT_EQ(snapshot->sdusageRef(), "");
    EXPECT_EQ(snapshot->sdkversionRef(), "");
    EXPECT_EQ(snapshot->mac1Ref(), "");
    EXPECT_EQ(snapshot->mac2Ref(), "");
    EXPECT_EQ(snapshot->uptimeRef(), "");
    EXPECT_EQ(snapshot->loadavgRef(), "");
    EXPECT_EQ(snapshot->displaytimeRef(), "");
    EXPECT_EQ(snapshot->pendingUtcClock(), "");
    EXPECT_EQ(snapshot->interfaceField(), "br0");
    EXPECT_EQ(snapshot->getControllerType(), ControllerType::Unknown);
    EXPECT_EQ(snapshot->getSnapshot(), nullptr);
}

TEST(SettingsSnapshot, IsIndependentOfLaterChangesToTheLiveObject) {
    Settings settings;
    fillEveryField(settings);
    settings.takeSnapshot();
    ASSERT_TRUE(settings.setNtpIp("10.0.0.9"));
    settings.setHostname("renamed");
    EXPECT_EQ(settings.getSnapshot()->ntpipRef(), "10.0.0.8");
    EXPECT_EQ(settings.getSnapshot()->hostnameRef(), "reported-host");
}

// --- Copy assignment ---------------------------------------------------------------------

TEST(SettingsCopyAssignment, CopiesExactlyDeviceHostnameToIpScheme) {
    Settings source;
    fillEveryField(source);
    Settings target;
    target = source;
    EXPECT_EQ(target.devicehostnameRef(), "device-host");
    EXPECT_EQ(target.hostnameRef(), "reported-host");
    EXPECT_EQ(target.ipRef(), "10.0.0.5");
    EXPECT_EQ(target.netmaskRef(), "255.255.255.0");
    EXPECT_EQ(target.gatewayRef(), "10.0.0.1");
    EXPECT_EQ(target.auxipRef(), "10.0.0.99");
    EXPECT_EQ(target.macRef(), "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(target.ntpipRef(), "10.0.0.8");
    EXPECT_EQ(target.controllerRef(), "controller-7");
    EXPECT_EQ(target.syslogipRef(), "10.0.0.6");
    EXPECT_EQ(target.nameserverRef(), "10.0.0.2");
    EXPECT_EQ(target.ipschemeRef(), "DHCP");
    // Not copied: the target keeps its defaults.
    EXPECT_EQ(target.housenamesRef(), "");
    EXPECT_EQ(target.ntpsyncRef(), "");
    EXPECT_EQ(target.sdusageRef(), "");
    EXPECT_EQ(target.sdkversionRef(), "");
    EXPECT_EQ(target.mac1Ref(), "");
    EXPECT_EQ(target.mac2Ref(), "");
    EXPECT_EQ(target.uptimeRef(), "");
    EXPECT_EQ(target.loadavgRef(), "");
    EXPECT_EQ(target.displaytimeRef(), "");
    EXPECT_EQ(target.pendingUtcClock(), "");
    EXPECT_EQ(target.interfaceField(), "br0");
    EXPECT_EQ(target.getControllerType(), ControllerType::Unknown);
}

TEST(SettingsCopyAssignment, LeavesTheTargetsOwnUncopiedFieldsAlone) {
    Settings source;
    fillEveryField(source);
    Settings target;
    target.setHousenames("target house");
    target.setNtpSync("no");
    target.setSdUsage("n/a");
    target.setSdkVersion("4.0");
    target.setMac1("aa:aa:aa:aa:aa:01");
    target.setMac2("aa:aa:aa:aa:aa:02");
    target.setUptime("1.00 2.00\n");
    target.setLoadavg("9.99\n");
    target.setDisplayTime("19700101000000");
    target.setControllerType(ControllerType::Qmt);
    target.takeSnapshot();
    const Settings* targetSnapshot = target.getSnapshot();

    target = source;

    EXPECT_EQ(target.housenamesRef(), "target house");
    EXPECT_EQ(target.ntpsyncRef(), "no");
    EXPECT_EQ(target.sdusageRef(), "n/a");
    EXPECT_EQ(target.sdkversionRef(), "4.0");
    EXPECT_EQ(target.mac1Ref(), "aa:aa:aa:aa:aa:01");
    EXPECT_EQ(target.mac2Ref(), "aa:aa:aa:aa:aa:02");
    EXPECT_EQ(target.uptimeRef(), "1.00 2.00\n");
    EXPECT_EQ(target.loadavgRef(), "9.99\n");
    EXPECT_EQ(target.displaytimeRef(), "19700101000000");
    EXPECT_EQ(target.getControllerType(), ControllerType::Qmt);
    EXPECT_EQ(target.getSnapshot(), targetSnapshot);
    EXPECT_EQ(target.getSnapshot()->ipschemeRef(), "STATIC");
    // The source is not changed by being copied from.
    EXPECT_EQ(source.housenamesRef(), "house A\n");
    EXPECT_EQ(source.getControllerType(), ControllerType::Imx);
}

TEST(SettingsCopyAssignment, SelfAssignmentChangesNothing) {
    Settings settings;
    fillEveryField(settings);
    settings.takeSnapshot();
    const Settings* snapshot = settings.getSnapshot();
    Settings& sameObject = settings;
    Settings& result = (settings = sameObject);
    EXPECT_EQ(&result, &settings);
    EXPECT_EQ(settings.devicehostnameRef(), "device-host");
    EXPECT_EQ(settings.hostnameRef(), "reported-host");
    EXPECT_EQ(settings.ipRef(), "10.0.0.5");
    EXPECT_EQ(settings.ipschemeRef(), "DHCP");
    EXPECT_EQ(settings.housenamesRef(), "house A\n");
    EXPECT_EQ(settings.getControllerType(), ControllerType::Imx);
    EXPECT_EQ(settings.getSnapshot(), snapshot);
}

TEST(SettingsCopyAssignment, ReturnsTheTarget) {
    Settings source;
    Settings target;
    Settings& result = (target = source);
    EXPECT_EQ(&result, &target);
}

}  // namespace
}  // namespace lcfd
