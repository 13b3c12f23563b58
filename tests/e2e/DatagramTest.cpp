// Every datagram is echoed to standard output and traced with its sender.
#include <gtest/gtest.h>

#include "Harness.hpp"

namespace e2e {
namespace {

const std::string kStartup =
    std::string("lcfd:Detected controller type: 2\nlcfd:Finished reading network settings\n") +
    kListening;
const std::string kNotUnderstood = "[198.18.255.254] Message not understood... \n\n";
const std::string kUnderstood = "[198.18.255.254] Message understood... \n\n";

// Every test of the suite on one arm9 board.
class Datagram : public LcfdBed {
  protected:
    void SetUp() override {
        LcfdBed::SetUp();
        if (!IsSkipped()) {
            ASSERT_TRUE(up({"arm9"}));
        }
    }

    // Sends the datagrams and waits until standard output holds `expected`
    // after the start-up lines.
    void expectOutput(const std::vector<std::string>& datagrams, const std::string& expected) {
        for (const auto& d : datagrams) {
            ASSERT_TRUE(tool().send(d));
        }
        std::string want = kStartup + expected;
        waitUntil([&] { return sb().out(1).size() >= want.size(); }, Seconds(5));
        EXPECT_EQ(sb().out(1), want);
        EXPECT_EQ(sb().err(1), "");
    }
};

TEST_F(Datagram, IsEchoedAndTracedAsNotUnderstood) {
    expectOutput({"hello"}, "hello\n" + kNotUnderstood);
}

TEST_F(Datagram, RepliesOfOtherDaemonsAreUnderstood) {
    expectOutput({"LCF2#ACK#seqid=1#mac=00:1A:2B:3C:4D:5E#accept=yes", "LCF2#STATUS",
                  "LCF2#query#seqid=1", "LCF9#QUERY#seqid=1"},
                 "LCF2#ACK#seqid=1#mac=00:1A:2B:3C:4D:5E#accept=yes\n" + kUnderstood +
                     "LCF2#STATUS\n" + kUnderstood + "LCF2#query#seqid=1\n" + kNotUnderstood +
                     "LCF9#QUERY#seqid=1\n" + kNotUnderstood);
}

TEST_F(Datagram, LongDatagramArrivesCutTo512Bytes) {
    std::string big;
    for (int i = 0; i < 600; ++i) {
        big.push_back(static_cast<char>('a' + i % 26));
    }
    expectOutput({big}, big.substr(0, 512) + "\n" + kNotUnderstood);
}

TEST_F(Datagram, EmptyDatagramIsIgnored) {
    expectOutput({"", "after"}, "after\n" + kNotUnderstood);
}

TEST_F(Datagram, ZeroByteIsEchoedAndParsedInFull) {
    // The command word ends at the next "#": a zero byte after it does not
    // matter, a zero byte inside it makes an unknown word.
    const std::string withZero("LCF2#ACK#\0tail", 14);
    const std::string zeroInWord("LCF2#AC\0K", 9);
    expectOutput({withZero, zeroInWord},
                 withZero + "\n" + kUnderstood + zeroInWord + "\n" + kNotUnderstood);
}

TEST_F(Datagram, LineBreaksAndBlanksAreKept) {
    expectOutput({" LCF2#STATUS\r\n\t "}, " LCF2#STATUS\r\n\t \n" + kNotUnderstood);
}

}  // namespace
}  // namespace e2e
