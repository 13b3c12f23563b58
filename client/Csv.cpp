#include "client/Csv.hpp"

namespace lcf {
namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// Reads records one character at a time; `at` is the position in the text, `line` the line it
// is on.
class CsvReader {
  public:
    explicit CsvReader(std::string_view text) : text_(text) {}

    std::vector<CsvRecord> read(std::optional<CsvError>& error) {
        std::vector<CsvRecord> records;
        while (at_ < text_.size()) {
            CsvRecord record;
            record.line = line_;
            if (!readRecord(record.cells, error)) {
                return {};
            }
            const bool emptyLine = record.cells.size() == 1 && record.cells.front().empty();
            if (!emptyLine) {
                records.push_back(std::move(record));
            }
        }
        return records;
    }

  private:
    bool readRecord(std::vector<std::string>& cells, std::optional<CsvError>& error) {
        for (;;) {
            std::string cell;
            if (!readCell(cell, error)) {
                return false;
            }
            cells.push_back(std::move(cell));
            if (at_ >= text_.size()) {
                return true;
            }
            const char separator = text_[at_++];
            if (separator == '\n') {
                ++line_;
                return true;
            }
            // Otherwise a comma: the next cell follows.
        }
    }

    bool readCell(std::string& cell, std::optional<CsvError>& error) {
        const std::size_t start = at_;
        while (at_ < text_.size() && isBlank(text_[at_])) {
            ++at_;
        }
        if (at_ < text_.size() && text_[at_] == '"') {
            return readQuoted(cell, error);
        }
        at_ = start;
        while (at_ < text_.size() && text_[at_] != ',' && text_[at_] != '\n') {
            ++at_;
        }
        std::string_view raw = text_.substr(start, at_ - start);
        if (!raw.empty() && raw.back() == '\r' && (at_ >= text_.size() || text_[at_] == '\n')) {
            raw.remove_suffix(1);
        }
        cell = trimmed(raw);
        return true;
    }

    bool readQuoted(std::string& cell, std::optional<CsvError>& error) {
        const std::size_t openedOn = line_;
        ++at_;  // the opening quote
        for (;;) {
            if (at_ >= text_.size()) {
                error = CsvError{openedOn, "a quoted cell is never closed"};
                return false;
            }
            const char c = text_[at_++];
            if (c == '"') {
                if (at_ < text_.size() && text_[at_] == '"') {
                    cell += '"';
                    ++at_;
                    continue;
                }
                break;
            }
            if (c == '\n') {
                ++line_;
            }
            cell += c;
        }
        while (at_ < text_.size() && (isBlank(text_[at_]) || text_[at_] == '\r')) {
            ++at_;
        }
        if (at_ < text_.size() && text_[at_] != ',' && text_[at_] != '\n') {
            error = CsvError{line_, "text after the closing quote of a cell"};
            return false;
        }
        return true;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t line_ = 1;
};

}  // namespace

std::string csvCell(std::string_view value) {
    const bool quoted = value.find_first_of(",\"\r\n") != std::string_view::npos ||
                        (!value.empty() && (isBlank(value.front()) || isBlank(value.back())));
    if (!quoted) {
        return std::string(value);
    }
    std::string cell = "\"";
    for (const char c : value) {
        cell += c;
        if (c == '"') {
            cell += '"';
        }
    }
    cell += '"';
    return cell;
}

std::string csvLine(const std::vector<std::string>& cells) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (i > 0) {
            line += ',';
        }
        line += csvCell(cells[i]);
    }
    line += '\n';
    return line;
}

std::vector<CsvRecord> parseCsv(std::string_view text, std::optional<CsvError>& error) {
    error.reset();
    return CsvReader(text).read(error);
}

}  // namespace lcf
