// Commissioning a fleet with lcf on sandboxed segments: discovery on a lossy segment, changes
// verified after the settling pause, plans exported, edited and applied, and what a technician
// should be told about duplicate addresses and silent virtual adapters.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "LcfSupport.hpp"
#include "wire/Protocol.hpp"

namespace e2e {
namespace {

// lcf's own version needs no segment, so that test runs without root too.
class Commissioning : public LcfdBed {
  protected:
    bool needsRoot() const override {
        return std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) !=
               "LcfSaysItsVersion";
    }
};

// A file of the test's own, removed at the end.
class PlanFile {
  public:
    PlanFile(const std::string& name, const std::string& content)
        : path_("/tmp/lcf-e2e-" + std::to_string(getpid()) + "-" + name) {
        writeFile(path_, content);
    }
    ~PlanFile() { std::remove(path_.c_str()); }
    PlanFile(const PlanFile&) = delete;
    PlanFile& operator=(const PlanFile&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

std::string readValue(const Sandbox& sb, int k, const std::string& key) {
    return readFile(sb.dir(k) + "/sim/" + key);
}

std::size_t countOf(const std::vector<std::string>& lines, const std::string& prefix) {
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const auto& l) { return l.rfind(prefix, 0) == 0; }));
}

TEST_F(Commissioning, LcfSaysItsVersion) {
    const ProcessResult run = runProgram({lcfBinary(), "--version"}, Seconds(10));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, std::string("lcf ") + lcfd::kVersion + "\n");
    EXPECT_EQ(run.err, "");
}

// A tenth of the datagrams to and from every controller is dropped: the rounds of the
// defaults still find every controller, each once.
TEST_F(Commissioning, DiscoveryWithDefaultsFindsEveryControllerOfALossySegment) {
    const std::vector<std::string> specs = mixedBoards(20);
    ASSERT_TRUE(upServing(specs, {"--loss", "10"}));
    const std::string before = utcNow();
    const LcfRun run = runLcf(sb(), {"discover", "--json"}, Seconds(300));
    const std::string after = utcNow();
    EXPECT_EQ(run.result.status, 0);
    EXPECT_EQ(maskCounts(run.result.err), "lan0: probed <n>, 20 controllers\n");
    EXPECT_EQ(run.result.err.find("probed once"), std::string::npos) << run.result.err;
    std::vector<Json> expected;
    for (int k = 1; k <= 20; ++k) {
        expected.push_back(expectedJson(k, specs[static_cast<std::size_t>(k - 1)], "lan0"));
    }
    EXPECT_EQ(maskedObjects(run.result.out, before, after), dumped(expected));
}

TEST_F(Commissioning, AVerifiedAssignReportsEveryValueThatTookOrDidNot) {
    ASSERT_TRUE(upServing({"arm9", "imx", "unknown"}));

    const LcfRun took = runLcf(
        sb(), {"assign", "02:4c:43:00:00:01", "ip=198.18.1.1", "gateway=198.18.255.2", "--verify"});
    EXPECT_EQ(took.result.status, 0);
    EXPECT_EQ(took.result.out,
              "02:4C:43:00:00:01 accept=yes\n"
              "02:4C:43:00:00:01 verified: ip=198.18.1.1 gateway=198.18.255.2\n");
    EXPECT_EQ(took.result.err, "");
    EXPECT_GT(took.seconds, 5.0);  // read again only after the settling pause
    EXPECT_EQ(readValue(sb(), 1, "ip"), "198.18.1.1\n");

    // The device acknowledges and reports success, but its tool changes nothing.
    sb().setFault(2, "tarnsetup.setip", "empty");
    const LcfRun ignored = runLcf(
        sb(), {"assign", "02:4c:43:00:00:02", "ip=198.18.1.2", "ntpip=198.18.255.11", "--verify"});
    EXPECT_EQ(ignored.result.status, 1);
    EXPECT_EQ(ignored.result.out,
              "02:4C:43:00:00:02 accept=yes\n"
              "ip: asked 198.18.1.2, reports 198.18.0.2\n");
    EXPECT_EQ(ignored.result.err, "lcf: 02:4C:43:00:00:02 did not take 1 of 2 values\n");

    // A clock set within the tolerance of the time that passed.
    const LcfRun clocked =
        runLcf(sb(), {"assign", "02:4c:43:00:00:02", "utcclock=20300102030405", "--verify"});
    EXPECT_EQ(clocked.result.status, 0);
    EXPECT_EQ(clocked.result.out,
              "02:4C:43:00:00:02 accept=yes\n"
              "02:4C:43:00:00:02 verified: utcclock=20300102030405\n");

    // A CLEAR verified at once (it has no pause): taken on imx, not on a board of unknown
    // platform, whose daemon clears nothing.
    const LcfRun cleared = runLcf(sb(), {"clear", "02:4c:43:00:00:02", "syslogip", "--verify"});
    EXPECT_EQ(cleared.result.status, 0);
    EXPECT_EQ(cleared.result.out,
              "02:4C:43:00:00:02 accept=yes\n02:4C:43:00:00:02 verified: syslogip cleared\n");
    EXPECT_LT(cleared.seconds, 5.0);
    const LcfRun kept = runLcf(sb(), {"clear", "02:4c:43:00:00:03", "ntpip", "--verify"});
    EXPECT_EQ(kept.result.status, 1);
    EXPECT_EQ(kept.result.out,
              "02:4C:43:00:00:03 accept=yes\nntpip: asked to clear, reports 198.18.255.10\n");
    EXPECT_EQ(kept.result.err, "lcf: 02:4C:43:00:00:03 did not take 1 of 1 value\n");
}

// Twenty controllers exported as CSV, moved to new addresses with a dry run first, applied in
// parallel and verified; then moved again from the JSON export; applying a plan again changes
// nothing.
TEST_F(Commissioning, APlanOfTwentyControllersIsAppliedFromCsvAndFromJson) {
    const int count = 20;
    ASSERT_TRUE(upServing(mixedBoards(count)));

    const LcfRun exported = runLcf(sb(), {"discover", "--csv", "--expect", "20"}, Seconds(120));
    ASSERT_EQ(exported.result.status, 0) << exported.result.err;
    std::string csv = exported.result.out;
    std::string expectedCsv =
        "mac,ip,netmask,gateway,ipscheme,ntpip,syslogip,nameserver,hostname,controller,"
        "interface\n";
    std::string edited = expectedCsv;
    std::string dryRun = "MAC                LINE  RESULT        CHANGES\n";
    for (int k = 1; k <= count; ++k) {
        const std::string platform = kMixed[static_cast<std::size_t>(k - 1) % kMixed.size()];
        const std::string nameserver = platform == "imx" ? "198.18.255.53" : "198.18.255.20";
        const std::string rest = ",255.255.0.0,198.18.255.1,STATIC,198.18.255.10,198.18.255.20," +
                                 nameserver + "," + platform + "-" + threeDigits(k) + ",CTRL-" +
                                 threeDigits(k) + ",lan0\n";
        expectedCsv += controllerMac(k) + "," + controllerAddress(k) + rest;
        edited += controllerMac(k) + ",198.18.1." + std::to_string(k) + rest;
        char row[160];
        std::snprintf(row, sizeof row, "%s  %-4d  would change  ip %s -> 198.18.1.%d\n",
                      controllerMac(k).c_str(), k + 1, controllerAddress(k).c_str(), k);
        dryRun += row;
    }
    EXPECT_EQ(csv, expectedCsv);
    const PlanFile plan("plan.csv", edited);

    const LcfRun dry = runLcf(sb(), {"apply", plan.path(), "--dry-run"}, Seconds(120));
    EXPECT_EQ(dry.result.status, 0);
    EXPECT_EQ(dry.result.out, dryRun + "20 controllers: 20 would change, 0 already right\n");
    EXPECT_EQ(dry.result.err, "");
    for (int k = 1; k <= count; ++k) {
        EXPECT_EQ(readValue(sb(), k, "ip"), controllerAddress(k) + "\n") << k;
        sb().clearShellLog(k);
    }

    const LcfRun applied = runLcf(sb(), {"apply", plan.path()}, Seconds(300));
    EXPECT_EQ(applied.result.status, 0) << applied.result.out << applied.result.err;
    EXPECT_EQ(applied.result.err, "");
    std::string changed = "MAC                LINE  RESULT   DETAIL\n";
    for (int k = 1; k <= count; ++k) {
        char row[160];
        std::snprintf(row, sizeof row, "%s  %-4d  changed  ip %s -> 198.18.1.%d\n",
                      controllerMac(k).c_str(), k + 1, controllerAddress(k).c_str(), k);
        changed += row;
    }
    EXPECT_EQ(applied.result.out,
              changed +
                  "20 controllers: 20 changed, 0 already right, 0 refused, 0 no answer, "
                  "0 did not take\n");
    // Twenty controllers that each settle for five seconds: in parallel, not one by one.
    EXPECT_LT(applied.seconds, 90.0);
    for (int k = 1; k <= count; ++k) {
        EXPECT_EQ(readValue(sb(), k, "ip"), "198.18.1." + std::to_string(k) + "\n") << k;
        EXPECT_EQ(countOf(sb().shellLog(k), "tarnsetup setip 198.18.1."), 1u) << k;
        sb().clearShellLog(k);
    }

    // The same plan again: nothing differs, nothing is sent but the readings.
    const LcfRun again = runLcf(sb(), {"apply", plan.path()}, Seconds(120));
    EXPECT_EQ(again.result.status, 0);
    EXPECT_NE(again.result.out.find("\n20 controllers: 0 changed, 20 already right, 0 refused, "
                                    "0 no answer, 0 did not take\n"),
              std::string::npos)
        << again.result.out;
    for (int k = 1; k <= count; ++k) {
        EXPECT_EQ(countOf(sb().shellLog(k), "tarnsetup setip"), 0u) << k;
    }

    // The JSON export, edited: every controller to 198.18.2.k.
    const LcfRun json = runLcf(sb(), {"discover", "--json", "--expect", "20"}, Seconds(120));
    ASSERT_EQ(json.result.status, 0) << json.result.err;
    Json controllers = Json::parse(json.result.out);
    ASSERT_EQ(controllers.size(), 20u);
    for (Json& controller : controllers) {
        const std::string ip = controller["ip"];
        controller["ip"] = "198.18.2." + ip.substr(ip.rfind('.') + 1);
    }
    const PlanFile jsonPlan("plan.json", controllers.dump(2) + "\n");
    const LcfRun fromJson = runLcf(sb(), {"apply", jsonPlan.path()}, Seconds(300));
    EXPECT_EQ(fromJson.result.status, 0) << fromJson.result.out << fromJson.result.err;
    EXPECT_NE(fromJson.result.out.find("\n20 controllers: 20 changed, 0 already right, "
                                       "0 refused, 0 no answer, 0 did not take\n"),
              std::string::npos)
        << fromJson.result.out;
    for (int k = 1; k <= count; ++k) {
        EXPECT_EQ(readValue(sb(), k, "ip"), "198.18.2." + std::to_string(k) + "\n") << k;
    }
    const LcfRun jsonAgain = runLcf(sb(), {"apply", jsonPlan.path()}, Seconds(120));
    EXPECT_EQ(jsonAgain.result.status, 0);
    EXPECT_NE(jsonAgain.result.out.find("\n20 controllers: 0 changed, 20 already right, "),
              std::string::npos)
        << jsonAgain.result.out;
}

// Plans that cannot be right are refused with their lines before anything is changed.
TEST_F(Commissioning, ABadPlanIsRefusedWithItsLinesAndChangesNothing) {
    ASSERT_TRUE(upServing({"arm9", "imx"}));
    sb().clearShellLog(1);
    sb().clearShellLog(2);

    const PlanFile bad("bad.csv",
                       "mac,ip,gateway,colour\n"
                       "02:4C:43:00:00:01,198.18.3.1,,red\n"
                       "02:4C:43:00:00:02,198.18.3.300,,blue\n"
                       "02:4c:43:00:00:01,,198.18.255.9,green\n");
    const LcfRun refused = runLcf(sb(), {"apply", bad.path()});
    EXPECT_EQ(refused.result.status, 2);
    EXPECT_EQ(refused.result.out, "");
    EXPECT_EQ(refused.result.err,
              "lcf: " + bad.path() +
                  ":1: unknown key 'colour' (a plan sets mac, ip, netmask, gateway, ipscheme, "
                  "ntpip, syslogip, nameserver)\n"
                  "lcf: " +
                  bad.path() + ":3: invalid IPv4 address for ip: '198.18.3.300'\n" +
                  "lcf: " + bad.path() + ":4: 02:4C:43:00:00:01 is already on line 2\n" +
                  "lcf: plan refused, nothing was changed\n");

    // A controller that is not on the segment: the others are read, none is changed.
    const PlanFile absent("absent.csv",
                          "mac,ip\n"
                          "02:4C:43:00:00:01,198.18.3.1\n"
                          "02:4C:43:00:00:99,198.18.3.99\n");
    const LcfRun missing = runLcf(sb(), {"apply", absent.path()}, Seconds(120));
    EXPECT_EQ(missing.result.status, 2);
    EXPECT_EQ(missing.result.out, "");
    EXPECT_EQ(maskCounts(missing.result.err),
              "lcf: " + absent.path() +
                  ":3: 02:4C:43:00:00:99 did not answer within <t> s: it is not on the segment\n"
                  "lcf: plan refused, nothing was changed\n");
    EXPECT_EQ(readValue(sb(), 1, "ip"), "198.18.0.1\n");
    EXPECT_EQ(countOf(sb().shellLog(1), "tarnsetup set"), 0u);
    EXPECT_EQ(countOf(sb().shellLog(2), "tarnsetup set"), 0u);
}

// What technicians trip over, said by the discovery: two controllers with one address, and an
// adapter of the tool host that only looks like a segment.
TEST_F(Commissioning, DiscoveryFlagsDuplicateAddressesAndDoubtsASilentVirtualAdapter) {
    ASSERT_TRUE(upServing({"arm9", "qmt", "generic"}));
    sb().setValue(3, "ip", "198.18.0.1");
    const std::string toolNetns = sb().toolNetns();
    const std::vector<std::vector<std::string>> bridge = {
        {"link", "add", "br9", "type", "bridge"},
        {"addr", "add", "10.9.9.1/24", "dev", "br9"},
        {"link", "set", "br9", "up"},
    };
    for (const std::vector<std::string>& command : bridge) {
        std::vector<std::string> argv = {"/usr/sbin/ip", "-n", toolNetns};
        argv.insert(argv.end(), command.begin(), command.end());
        ASSERT_EQ(runProgram(argv, Seconds(10)).status, 0) << command.front();
    }

    const std::string before = utcNow();
    const LcfRun run = runLcf(sb(), {"discover", "-i", "lan0", "-i", "br9"}, Seconds(120));
    const std::string after = utcNow();
    EXPECT_EQ(run.result.status, 0);
    EXPECT_EQ(maskCounts(run.result.err),
              "lan0: probed <n>, 3 controllers\n"
              "br9: probed <n>, 0 controllers (a bridge with no ports: looks like a virtual or "
              "container adapter)\n");
    EXPECT_EQ(maskClocks(run.result.out, before, after),
              "MAC                IP          NETMASK      GATEWAY       SCHEME  HOSTNAME     "
              "CONTROLLER  SDK  UTCCLOCK        INTERFACE  NOTE\n"
              "02:4C:43:00:00:01  198.18.0.1  255.255.0.0  198.18.255.1  STATIC  arm9-001     "
              "CTRL-001    -    YYYYMMDDhhmmss  lan0       duplicate IP\n"
              "02:4C:43:00:00:02  198.18.0.2  255.255.0.0  198.18.255.1  STATIC  qmt-002      "
              "CTRL-002    -    YYYYMMDDhhmmss  lan0\n"
              "02:4C:43:00:00:03  198.18.0.1  255.255.0.0  198.18.255.1  STATIC  generic-003  "
              "CTRL-003    -    YYYYMMDDhhmmss  lan0       duplicate IP\n"
              "3 controllers found, 2 with a duplicate IP\n");

    const LcfRun json = runLcf(sb(), {"discover", "--json", "-i", "lan0", "-e", "3"}, Seconds(60));
    const Json parsed = Json::parse(json.result.out, nullptr, false);
    ASSERT_TRUE(parsed.is_array()) << json.result.out;
    std::vector<bool> flags;
    for (const Json& controller : parsed) {
        flags.push_back(controller.value("duplicate_ip", false));
    }
    EXPECT_EQ(flags, (std::vector<bool>{true, false, true}));
}

}  // namespace
}  // namespace e2e
