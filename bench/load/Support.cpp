#include "Support.hpp"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace load {

namespace {

// A "Name:   N kB" line of a /proc file, in KiB.
std::optional<long> procKiB(const std::string& path, const std::string& name) {
    std::istringstream in(e2e::readFile(path));
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(name + ":", 0) == 0) {
            return std::stol(line.substr(name.size() + 1));
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<ProcessTimes> processTimes(int pid) {
    const std::string stat = e2e::readFile("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t close = stat.rfind(')');
    if (close == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(stat.substr(close + 2));
    std::vector<std::string> field;
    std::string word;
    while (fields >> word) {
        field.push_back(word);
    }
    // Counted from the state (field 3 of proc(5)): utime is 14, stime 15, cutime 16, cstime 17.
    if (field.size() < 15 || field[0].empty()) {
        return std::nullopt;
    }
    const auto tick = static_cast<double>(sysconf(_SC_CLK_TCK));
    ProcessTimes times;
    times.state = field[0][0];
    times.ownSeconds = (std::stod(field[11]) + std::stod(field[12])) / tick;
    times.childrenSeconds = (std::stod(field[13]) + std::stod(field[14])) / tick;
    return times;
}

std::optional<std::uint64_t> runNanoseconds(int pid) {
    std::istringstream in(e2e::readFile("/proc/" + std::to_string(pid) + "/schedstat"));
    std::uint64_t ns = 0;
    if (!(in >> ns)) {
        return std::nullopt;
    }
    return ns;
}

Memory memoryOf(int pid) {
    const std::string base = "/proc/" + std::to_string(pid);
    Memory m;
    m.rssKiB = procKiB(base + "/status", "VmRSS").value_or(-1);
    m.anonKiB = procKiB(base + "/status", "RssAnon").value_or(-1);
    m.pssKiB = procKiB(base + "/smaps_rollup", "Pss").value_or(-1);
    m.pssAnonKiB = procKiB(base + "/smaps_rollup", "Pss_Anon").value_or(-1);
    return m;
}

bool waitForState(int pid, char state, Seconds timeout) {
    return e2e::waitUntil(
        [&] {
            auto t = processTimes(pid);
            return t && t->state == state;
        },
        timeout);
}

std::optional<cpu_set_t> pinTo(pid_t task, int cpu) {
    cpu_set_t before;
    CPU_ZERO(&before);
    if (sched_getaffinity(task, sizeof before, &before) != 0) {
        return std::nullopt;
    }
    cpu_set_t only;
    CPU_ZERO(&only);
    CPU_SET(static_cast<std::size_t>(cpu), &only);
    if (sched_setaffinity(task, sizeof only, &only) != 0) {
        return std::nullopt;
    }
    return before;
}

void restoreAffinity(pid_t task, const std::optional<cpu_set_t>& mask) {
    if (mask) {
        sched_setaffinity(task, sizeof *mask, &*mask);
    }
}

Spread spreadOf(const std::vector<double>& samples) {
    double sum = 0;
    for (double s : samples) {
        sum += s;
    }
    std::vector<double> sorted = samples;
    std::sort(sorted.begin(), sorted.end());
    Spread spread;
    spread.mean = sum / static_cast<double>(samples.size());
    spread.median = sorted[sorted.size() / 2];
    spread.p95 = sorted[std::min(sorted.size() - 1, sorted.size() * 95 / 100)];
    return spread;
}

std::string fixed(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

void Report::add(const std::string& key, const std::string& figure, const std::string& value,
                 const std::string& target, std::optional<bool> met) {
    rows_.push_back({key, figure, value, target, met ? (*met ? "yes" : "no") : ""});
}

void Report::print(std::ostream& out, const std::string& heading) const {
    std::size_t w0 = 6;
    std::size_t w1 = 5;
    std::size_t w2 = 6;
    for (const Row& r : rows_) {
        w0 = std::max(w0, r.figure.size());
        w1 = std::max(w1, r.value.size());
        w2 = std::max(w2, r.target.size());
    }
    out << heading << "\n";
    auto line = [&](const std::string& a, const std::string& b, const std::string& c,
                    const std::string& d) {
        out << "| " << a << std::string(w0 - a.size(), ' ') << " | " << b
            << std::string(w1 - b.size(), ' ') << " | " << c << std::string(w2 - c.size(), ' ')
            << " | " << d << std::string(3 - std::min<std::size_t>(3, d.size()), ' ') << " |\n";
    };
    line("figure", "value", "target", "met");
    out << "|" << std::string(w0 + 2, '-') << "|" << std::string(w1 + 2, '-') << "|"
        << std::string(w2 + 2, '-') << "|-----|\n";
    for (const Row& r : rows_) {
        line(r.figure, r.value, r.target, r.met);
    }
    for (const std::string& n : notes_) {
        out << "note: " << n << "\n";
    }
}

bool Report::writeTsv(const std::string& path) const {
    std::ofstream out(path, std::ios::trunc);
    for (const Row& r : rows_) {
        out << r.key << '\t' << r.figure << '\t' << r.value << '\t' << r.target << '\t' << r.met
            << '\n';
    }
    for (const std::string& n : notes_) {
        out << "note\t" << n << "\t\t\t\n";
    }
    return static_cast<bool>(out);
}

}  // namespace load
