// Choosing the interface from the interface file, and finding an interface's netmask in a
// list of interface addresses.

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "TestSupport.hpp"
#include "net/InterfaceSelection.hpp"

namespace lcfd {
namespace {

using test::CapturedOutput;
using test::captureOutput;
using test::TempDir;

struct Selection {
    std::string name;
    CapturedOutput output;
};

Selection selectFrom(const std::string& path, const std::string& previousName) {
    Selection selection{previousName, {}};
    selection.output = captureOutput([&] { selectInterfaceName(path.c_str(), selection.name); });
    return selection;
}

Selection selectFromContent(const std::string& content, const std::string& previousName = "br0") {
    TempDir dir;
    return selectFrom(dir.writeFile("lcfd_interface", content), previousName);
}

// ---- selectInterfaceName ----

TEST(SelectInterfaceName, MissingFileKeepsTheDefaultAndPrintsNothing) {
    TempDir dir;
    const Selection selection = selectFrom(dir.path() + "/lcfd_interface", "br0");
    EXPECT_EQ(selection.name, "br0");
    EXPECT_EQ(selection.output.out, "");
    EXPECT_EQ(selection.output.err, "");
}

TEST(SelectInterfaceName, MissingFileKeepsTheNameOfTheLastReading) {
    TempDir dir;
    const Selection selection = selectFrom(dir.path() + "/lcfd_interface", "eth1");
    EXPECT_EQ(selection.name, "eth1");
    EXPECT_EQ(selection.output.out, "");
}

TEST(SelectInterfaceName, MissingFileStillTurnsAnEmptyNameIntoBr0) {
    TempDir dir;
    EXPECT_EQ(selectFrom(dir.path() + "/lcfd_interface", "").name, "br0");
}

TEST(SelectInterfaceName, NameWithLineFeedIsTakenWithoutIt) {
    const Selection selection = selectFromContent("eth0\n");
    EXPECT_EQ(selection.name, "eth0");
    EXPECT_EQ(selection.output.out, "LCFD using interface: eth0\n");
    EXPECT_EQ(selection.output.err, "");
}

TEST(SelectInterfaceName, NameWithoutLineFeedIsTakenAsItIs) {
    const Selection selection = selectFromContent("eth1");
    EXPECT_EQ(selection.name, "eth1");
    EXPECT_EQ(selection.output.out, "LCFD using interface: eth1\n");
}

// Only line feeds are removed; the carriage return stays in the selected name.
TEST(SelectInterfaceName, CarriageReturnIsKept) {
    const Selection selection = selectFromContent("eth0\r\n");
    EXPECT_EQ(selection.name, "eth0\r");
    EXPECT_EQ(selection.name.size(), 5u);
    EXPECT_EQ(selection.output.out, "LCFD using interface: eth0\r\n");
}

TEST(SelectInterfaceName, BlanksAndTabsAreKept) {
    const Selection selection = selectFromContent(" eth0\t\n");
    EXPECT_EQ(selection.name, " eth0\t");
    EXPECT_EQ(selection.output.out, "LCFD using interface:  eth0\t\n");
}

// The whole file is the name, not its first line.
TEST(SelectInterfaceName, TwoLinesAreJoined) {
    const Selection selection = selectFromContent("eth0\neth1\n");
    EXPECT_EQ(selection.name, "eth0eth1");
    EXPECT_EQ(selection.output.out, "LCFD using interface: eth0eth1\n");
}

TEST(SelectInterfaceName, NineCharacterNameIsKept) {
    const Selection selection = selectFromContent("abcdefghi\n");
    EXPECT_EQ(selection.name, "abcdefghi");
    EXPECT_EQ(selection.output.out, "LCFD using interface: abcdefghi\n");
}

TEST(SelectInterfaceName, TenCharacterNameIsPrintedButReplacedByBr0) {
    const Selection selection = selectFromContent("abcdefghij\n", "eth1");
    EXPECT_EQ(selection.name, "br0");
    EXPECT_EQ(selection.output.out, "LCFD using interface: abcdefghij\n");
}

// The length limit applies after the line feeds are gone.
TEST(SelectInterfaceName, LengthIsMeasuredWithoutLineFeeds) {
    const Selection selection = selectFromContent("abcde\nfghi\n\n");
    EXPECT_EQ(selection.name, "abcdefghi");
    EXPECT_EQ(selection.output.out, "LCFD using interface: abcdefghi\n");
}

TEST(SelectInterfaceName, LoneLineFeedIsPrintedEmptyAndGivesBr0) {
    const Selection selection = selectFromContent("\n", "eth1");
    EXPECT_EQ(selection.name, "br0");
    EXPECT_EQ(selection.output.out, "LCFD using interface: \n");
}

TEST(SelectInterfaceName, EmptyFileIsPrintedEmptyAndGivesBr0) {
    const Selection selection = selectFromContent("", "eth1");
    EXPECT_EQ(selection.name, "br0");
    EXPECT_EQ(selection.output.out, "LCFD using interface: \n");
}

TEST(SelectInterfaceName, ChangedFileTakesEffectAtTheNextSelection) {
    TempDir dir;
    const std::string path = dir.writeFile("lcfd_interface", "eth0\n");
    std::string name = "br0";
    const CapturedOutput output = captureOutput([&] {
        selectInterfaceName(path.c_str(), name);
        dir.writeFile("lcfd_interface", "eth1\n");
        selectInterfaceName(path.c_str(), name);
    });
    EXPECT_EQ(name, "eth1");
    EXPECT_EQ(output.out, "LCFD using interface: eth0\nLCFD using interface: eth1\n");
}

TEST(SelectInterfaceName, ReturnsTheNameItWasGiven) {
    TempDir dir;
    const std::string path = dir.writeFile("lcfd_interface", "eth0\n");
    std::string name = "br0";
    std::string* returned = nullptr;
    captureOutput([&] { returned = &selectInterfaceName(path.c_str(), name); });
    EXPECT_EQ(returned, &name);
}

// ---- findInterfaceNetmask ----

// Builds a linked list of interface addresses the way the system hands one out.
class InterfaceList {
  public:
    void addIpv4(const std::string& name, const char* address, const char* netmask) {
        Entry& entry = addEntry(name);
        entry.address = ipv4(address);
        entry.netmask = ipv4(netmask);
        entry.node.ifa_addr = reinterpret_cast<sockaddr*>(&entry.address);
        entry.node.ifa_netmask = reinterpret_cast<sockaddr*>(&entry.netmask);
    }
    void addWithoutAddress(const std::string& name) { addEntry(name); }
    // An entry of another family whose netmask field still holds an IPv4 mask, so that
    // taking it by mistake would show.
    void addOtherFamily(const std::string& name, sa_family_t family, const char* netmask) {
        Entry& entry = addEntry(name);
        entry.address = ipv4("192.0.2.1");
        entry.address.sin_family = family;
        entry.netmask = ipv4(netmask);
        entry.node.ifa_addr = reinterpret_cast<sockaddr*>(&entry.address);
        entry.node.ifa_netmask = reinterpret_cast<sockaddr*>(&entry.netmask);
    }
    const ifaddrs* head() const { return entries_.empty() ? nullptr : &entries_.front().node; }

  private:
    struct Entry {
        std::vector<char> name;
        sockaddr_in address{};
        sockaddr_in netmask{};
        ifaddrs node{};
    };

    static sockaddr_in ipv4(const char* text) {
        sockaddr_in result{};
        result.sin_family = AF_INET;
        inet_pton(AF_INET, text, &result.sin_addr);
        return result;
    }

    Entry& addEntry(const std::string& name) {
        entries_.emplace_back();  // a deque keeps earlier entries where they are
        Entry& entry = entries_.back();
        entry.name.assign(name.begin(), name.end());
        entry.name.push_back('\0');
        entry.node.ifa_name = entry.name.data();
        if (entries_.size() > 1) {
            entries_[entries_.size() - 2].node.ifa_next = &entry.node;
        }
        return entry;
    }

    std::deque<Entry> entries_;
};

TEST(FindInterfaceNetmask, ReturnsTheNetmaskNotTheAddress) {
    InterfaceList list;
    list.addIpv4("eth0", "10.0.0.5", "255.255.255.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "eth0"), "255.255.255.0");
}

TEST(FindInterfaceNetmask, EmptyListFindsNothing) {
    EXPECT_EQ(findInterfaceNetmask(nullptr, "br0"), "ERROR::interface not found");
}

TEST(FindInterfaceNetmask, ExactShortNameMatches) {
    InterfaceList list;
    list.addIpv4("lo", "127.0.0.1", "255.0.0.0");
    list.addIpv4("br0", "192.168.1.20", "255.255.0.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "br0"), "255.255.0.0");
}

// A three-character name ends before the fourth character, so br01 is a different name.
TEST(FindInterfaceNetmask, Br0DoesNotMatchBr01) {
    InterfaceList list;
    list.addIpv4("br01", "192.168.1.20", "255.255.255.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "br0"), "ERROR::interface not found");
}

TEST(FindInterfaceNetmask, ShorterPrefixDoesNotMatch) {
    InterfaceList list;
    list.addIpv4("eth0", "10.0.0.5", "255.255.255.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "eth"), "ERROR::interface not found");
}

TEST(FindInterfaceNetmask, Eth0MatchesItsAlias) {
    InterfaceList list;
    list.addIpv4("eth0:1", "10.0.1.5", "255.255.252.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "eth0"), "255.255.252.0");
}

TEST(FindInterfaceNetmask, Wlan0MatchesWlan1) {
    InterfaceList list;
    list.addIpv4("wlan1", "10.0.2.5", "255.255.255.128");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "wlan0"), "255.255.255.128");
}

TEST(FindInterfaceNetmask, LongerSelectedNameMatchesByItsFirstFourCharacters) {
    InterfaceList list;
    list.addIpv4("eth0", "10.0.0.5", "255.255.255.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "eth0:1"), "255.255.255.0");
}

TEST(FindInterfaceNetmask, FirstQualifyingEntryWins) {
    InterfaceList list;
    list.addIpv4("eth1", "10.0.9.5", "255.0.0.0");
    list.addIpv4("eth0:1", "10.0.1.5", "255.255.252.0");
    list.addIpv4("eth0", "10.0.0.5", "255.255.255.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "eth0"), "255.255.252.0");
}

TEST(FindInterfaceNetmask, EntryWithoutAddressIsSkipped) {
    InterfaceList list;
    list.addWithoutAddress("eth0");
    list.addIpv4("eth0", "10.0.0.5", "255.255.255.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "eth0"), "255.255.255.0");
}

TEST(FindInterfaceNetmask, EntriesOfOtherFamiliesAreSkipped) {
    InterfaceList list;
    list.addOtherFamily("eth0", AF_PACKET, "255.255.0.0");
    list.addOtherFamily("eth0", AF_INET6, "255.0.0.0");
    list.addIpv4("eth0", "10.0.0.5", "255.255.255.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "eth0"), "255.255.255.0");
}

TEST(FindInterfaceNetmask, InterfaceWithoutIpv4AddressIsNotFound) {
    InterfaceList list;
    list.addWithoutAddress("br0");
    list.addOtherFamily("br0", AF_PACKET, "255.255.0.0");
    list.addOtherFamily("br0", AF_INET6, "255.0.0.0");
    list.addIpv4("eth0", "10.0.0.5", "255.255.255.0");
    EXPECT_EQ(findInterfaceNetmask(list.head(), "br0"), "ERROR::interface not found");
}

// The loopback interface carries 127.0.0.1/8 on every Linux system.
TEST(LookupInterfaceNetmask, FindsTheLoopbackNetmaskOnThisSystem) {
    EXPECT_EQ(lookupInterfaceNetmask("lo"), "255.0.0.0");
}

TEST(LookupInterfaceNetmask, UnknownInterfaceIsNotFound) {
    EXPECT_EQ(lookupInterfaceNetmask("zzz9"), "ERROR::interface not found");
}

}  // namespace
}  // namespace lcfd
