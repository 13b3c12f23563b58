#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lcf {

// Comma-separated values as spreadsheets write them: a cell holding a comma, a double quote, a
// line break or blanks at either end is put in double quotes, with its quotes doubled.
std::string csvCell(std::string_view value);
// The cells joined by commas, and a line feed.
std::string csvLine(const std::vector<std::string>& cells);

// One record of a CSV text and the line it begins on (from 1).
struct CsvRecord {
    std::size_t line = 0;
    std::vector<std::string> cells;
};

struct CsvError {
    std::size_t line = 0;
    std::string message;
};

// Reads a CSV text: records end at a line feed (a carriage return before it is dropped) unless
// it stands in quotes; blanks around an unquoted cell are dropped; empty lines are skipped.
// Returns the records, or the first error (a quote that is never closed, text after a closing
// quote).
std::vector<CsvRecord> parseCsv(std::string_view text, std::optional<CsvError>& error);

}  // namespace lcf
