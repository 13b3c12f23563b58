// A plan as a user hands it to `lcf apply`: any bytes, read as CSV or as JSON. Every row that
// comes out names a controller by a valid MAC address, once, and carries only values that
// `lcf assign` would send; every problem has a line of the text; a plan without problems reads
// back the same when written as CSV; and the CSV reader reads back what it wrote.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FuzzCheck.hpp"
#include "client/Csv.hpp"
#include "client/Plan.hpp"
#include "client/Validation.hpp"

namespace {

std::size_t lineCount(const std::string& text) {
    std::size_t lines = 1;
    for (const char c : text) {
        lines += c == '\n' ? 1 : 0;
    }
    return lines;
}

void checkRows(const lcf::Plan& plan, std::size_t lines) {
    std::set<std::string> macs;
    for (const lcf::PlanRow& row : plan.rows) {
        FUZZ_CHECK(row.line >= 1 && row.line <= lines);
        FUZZ_CHECK(lcf::isMacAddress(row.mac) && !fuzz::hasLowerCaseLetter(row.mac));
        FUZZ_CHECK(macs.insert(row.mac).second || !plan.problems.empty());
        for (const auto& [fieldKey, value] : row.values) {
            std::pair<std::string, std::string> checked;
            FUZZ_CHECK(!value.empty());
            std::string argument = fieldKey;
            argument.append("=").append(value);
            FUZZ_CHECK(!lcf::checkAssignment(argument, checked));
            FUZZ_CHECK(checked.first == fieldKey && checked.second == value);
            FUZZ_CHECK(fieldKey != "utcclock");
        }
    }
    for (const lcf::PlanProblem& problem : plan.problems) {
        FUZZ_CHECK(problem.line >= 1 && problem.line <= lines);
        FUZZ_CHECK(!problem.message.empty());
    }
    FUZZ_CHECK(!plan.problems.empty() || !plan.rows.empty());
}

std::string asCsv(const lcf::Plan& plan) {
    std::vector<std::string> header = {"mac"};
    header.insert(header.end(), lcf::plannedKeys().begin(), lcf::plannedKeys().end());
    std::string csv = lcf::csvLine(header);
    for (const lcf::PlanRow& row : plan.rows) {
        std::vector<std::string> cells = {row.mac};
        for (const std::string& planned : lcf::plannedKeys()) {
            std::string cell;
            for (const auto& [fieldKey, value] : row.values) {
                if (fieldKey == planned) {
                    cell = value;
                }
            }
            cells.push_back(cell);
        }
        csv += lcf::csvLine(cells);
    }
    return csv;
}

void checkCsvRoundTrip(const std::string& text) {
    std::optional<lcf::CsvError> error;
    const std::vector<lcf::CsvRecord> records = lcf::parseCsv(text, error);
    if (error) {
        FUZZ_CHECK(records.empty() && error->line >= 1 && error->line <= lineCount(text));
        return;
    }
    std::string written;
    for (const lcf::CsvRecord& record : records) {
        FUZZ_CHECK(!(record.cells.size() == 1 && record.cells.front().empty()));
        written += lcf::csvLine(record.cells);
    }
    const std::vector<lcf::CsvRecord> again = lcf::parseCsv(written, error);
    FUZZ_CHECK(!error && again.size() == records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        FUZZ_CHECK(again[i].cells == records[i].cells);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::asText(data, size);
    const lcf::Plan plan = lcf::readPlan(text);
    checkRows(plan, lineCount(text));
    if (plan.problems.empty()) {
        const lcf::Plan again = lcf::readPlan(asCsv(plan));
        FUZZ_CHECK(again.problems.empty() && again.rows.size() == plan.rows.size());
        for (std::size_t i = 0; i < plan.rows.size(); ++i) {
            FUZZ_CHECK(again.rows[i].mac == plan.rows[i].mac);
            FUZZ_CHECK(again.rows[i].values == plan.rows[i].values);
        }
    }
    checkCsvRoundTrip(text);
    return 0;
}
