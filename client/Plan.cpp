#include "client/Plan.hpp"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "client/Csv.hpp"
#include "client/Validation.hpp"
#include "wire/MessageFormat.hpp"

namespace lcf {
namespace {

namespace key = lcfd::key;

bool isPlannedKey(const std::string& name) {
    const auto& keys = plannedKeys();
    return std::find(keys.begin(), keys.end(), name) != keys.end();
}

// Keys that describe a controller without being changed by a plan: the STATUS fields, and what
// lcf adds to its own output.
bool isReadOnlyKey(const std::string& name) {
    static const std::set<std::string> keys = [] {
        std::set<std::string> all = {key::kSeqid, "interface", "outside_subnet", "duplicate_ip"};
        for (const lcfd::StatusField& field : lcfd::statusFields()) {
            all.insert(field.key);
        }
        for (const std::string& planned : plannedKeys()) {
            all.erase(planned);
        }
        return all;
    }();
    return keys.count(name) != 0;
}

std::string unknownKey(const std::string& name) {
    std::string list = key::kMac;
    for (const std::string& planned : plannedKeys()) {
        list += ", " + planned;
    }
    return "unknown key '" + name + "' (a plan sets " + list + ")";
}

// Builds the rows, checking each value as `lcf assign` would and each MAC address once.
class PlanBuilder {
  public:
    void problem(std::size_t line, std::string message) {
        plan_.problems.push_back(PlanProblem{line, std::move(message)});
    }

    void beginRow(std::size_t line) {
        row_ = PlanRow{};
        row_.line = line;
        hasMac_ = false;
    }

    void mac(std::size_t line, const std::optional<std::string>& given) {
        hasMac_ = true;
        if (!given) {
            problem(line, std::string(key::kMac) + " must be a text in double quotes");
            return;
        }
        const std::string& text = *given;
        if (const auto bad = macProblem(text)) {
            problem(line, *bad);
            return;
        }
        row_.mac = lcfd::upperCased(text);
        const auto [earlier, isNew] = macLines_.emplace(row_.mac, row_.line);
        if (!isNew) {
            problem(line, row_.mac + " is already on line " + std::to_string(earlier->second));
        }
    }

    void value(std::size_t line, const std::string& name, const std::string& text) {
        if (text.empty()) {
            return;  // left as it is
        }
        std::pair<std::string, std::string> checked;
        if (const auto bad = checkAssignment(name + "=" + text, checked)) {
            problem(line, *bad);
            return;
        }
        row_.values.push_back(std::move(checked));
    }

    void endRow(std::size_t line) {
        if (!hasMac_) {
            problem(line, "no mac: every controller of a plan is named by its MAC address");
            return;
        }
        if (!row_.mac.empty()) {
            // In the order an ASSIGN carries them, whatever the plan's column order.
            std::stable_sort(row_.values.begin(), row_.values.end(),
                             [](const auto& a, const auto& b) {
                                 const auto& keys = plannedKeys();
                                 return std::find(keys.begin(), keys.end(), a.first) <
                                        std::find(keys.begin(), keys.end(), b.first);
                             });
            plan_.rows.push_back(std::move(row_));
        }
    }

    Plan finish(std::size_t lastLine) {
        if (plan_.rows.empty() && plan_.problems.empty()) {
            problem(lastLine, "the plan names no controller");
        }
        std::stable_sort(
            plan_.problems.begin(), plan_.problems.end(),
            [](const PlanProblem& a, const PlanProblem& b) { return a.line < b.line; });
        return std::move(plan_);
    }

  private:
    Plan plan_;
    PlanRow row_;
    bool hasMac_ = false;
    std::map<std::string, std::size_t> macLines_;
};

Plan readCsvPlan(std::string_view text) {
    PlanBuilder builder;
    std::optional<CsvError> error;
    const std::vector<CsvRecord> records = parseCsv(text, error);
    if (error) {
        builder.problem(error->line, error->message);
        return builder.finish(error->line);
    }
    if (records.empty()) {
        return builder.finish(1);
    }
    const CsvRecord& header = records.front();
    std::set<std::string> seen;
    bool hasMacColumn = false;
    for (const std::string& column : header.cells) {
        if (!seen.insert(column).second) {
            builder.problem(header.line, "column '" + column + "' twice in the header");
        } else if (column == key::kMac) {
            hasMacColumn = true;
        } else if (!isPlannedKey(column) && !isReadOnlyKey(column)) {
            builder.problem(header.line, unknownKey(column));
        }
    }
    if (!hasMacColumn) {
        builder.problem(header.line, "the header has no mac column");
        return builder.finish(header.line);
    }
    for (std::size_t r = 1; r < records.size(); ++r) {
        const CsvRecord& record = records[r];
        builder.beginRow(record.line);
        if (record.cells.size() != header.cells.size()) {
            builder.problem(record.line, std::to_string(record.cells.size()) +
                                             " cells, but the header has " +
                                             std::to_string(header.cells.size()));
            continue;
        }
        for (std::size_t c = 0; c < record.cells.size(); ++c) {
            const std::string& column = header.cells[c];
            if (column == key::kMac) {
                builder.mac(record.line, record.cells[c]);
            } else if (isPlannedKey(column)) {
                builder.value(record.line, column, record.cells[c]);
            }
        }
        builder.endRow(record.line);
    }
    return builder.finish(records.back().line);
}

// Walks a JSON text without building a document, so that every key and object is known with
// the line it stands on. The lexer reads the text through LineCounter, which counts the line
// feeds it has passed.
class LineCounter {
  public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    LineCounter(const char* at, std::size_t* line) : at_(at), line_(line) {}
    reference operator*() const { return *at_; }
    LineCounter& operator++() {
        if (*at_ == '\n') {
            ++*line_;
        }
        ++at_;
        return *this;
    }
    bool operator==(const LineCounter& other) const { return at_ == other.at_; }
    bool operator!=(const LineCounter& other) const { return at_ != other.at_; }

  private:
    const char* at_;
    std::size_t* line_;
};

class JsonPlanReader : public nlohmann::json_sax<nlohmann::json> {
  public:
    JsonPlanReader(PlanBuilder& builder, const std::size_t& line, std::string_view text)
        : builder_(builder), line_(line), text_(text) {}

    bool null() override { return scalar(std::nullopt, true); }
    bool boolean(bool) override { return scalar(std::nullopt, false); }
    bool number_integer(number_integer_t) override { return scalar(std::nullopt, false); }
    bool number_unsigned(number_unsigned_t) override { return scalar(std::nullopt, false); }
    bool number_float(number_float_t, const string_t&) override {
        return scalar(std::nullopt, false);
    }
    bool string(string_t& value) override { return scalar(value, false); }
    bool binary(binary_t&) override { return scalar(std::nullopt, false); }

    bool start_object(std::size_t) override {
        ++depth_;
        if (depth_ == 1) {
            return notAnArray();
        }
        if (depth_ == 2) {
            builder_.beginRow(line_);
            rowLine_ = line_;
            keysOfRow_.clear();
        } else if (depth_ == 3) {
            nested();
        }
        return true;
    }
    bool end_object() override {
        if (depth_ == 2) {
            builder_.endRow(rowLine_);
        }
        --depth_;
        return true;
    }
    bool start_array(std::size_t) override {
        ++depth_;
        if (depth_ == 2) {
            builder_.problem(line_, "every element of a plan is an object of key/value pairs");
        } else if (depth_ == 3) {
            nested();
        }
        return true;
    }
    bool end_array() override {
        --depth_;
        return true;
    }
    bool key(string_t& name) override {
        if (depth_ == 2) {
            key_ = name;
            keyLine_ = line_;
            if (!keysOfRow_.insert(name).second) {
                builder_.problem(line_, "key '" + name + "' twice in one controller");
            } else if (name != key::kMac && !isPlannedKey(name) && !isReadOnlyKey(name)) {
                builder_.problem(line_, unknownKey(name));
            }
        }
        return true;
    }
    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception& error) override {
        const std::size_t end = std::min(position, text_.size());
        const auto line = static_cast<std::size_t>(
            std::count(text_.begin(), text_.begin() + static_cast<std::ptrdiff_t>(end), '\n'));
        std::string reason = error.what();
        const std::size_t colon = reason.find(": ");
        if (colon != std::string::npos) {
            reason = reason.substr(colon + 2);
        }
        builder_.problem(line + 1, "not a JSON plan: " + reason);
        failed_ = true;
        return false;
    }

    bool failed() const { return failed_; }

  private:
    bool notAnArray() {
        builder_.problem(line_, "a plan in JSON is an array of objects, one per controller");
        failed_ = true;
        return false;
    }

    // A value directly in a controller's object, or anything at the top where the array belongs.
    bool scalar(const std::optional<std::string>& text, bool isNull) {
        if (depth_ == 0) {
            return notAnArray();
        }
        if (depth_ == 1) {
            builder_.problem(line_, "every element of a plan is an object of key/value pairs");
            return true;
        }
        if (depth_ != 2) {
            return true;  // inside a nested value of a key that is read over
        }
        if (key_ == key::kMac) {
            builder_.mac(keyLine_, text);
        } else if (isPlannedKey(key_)) {
            if (text) {
                builder_.value(keyLine_, key_, *text);
            } else if (!isNull) {
                builder_.problem(keyLine_, key_ + " must be a text in double quotes");
            }
        }
        return true;
    }

    void nested() {
        if (key_ == key::kMac || isPlannedKey(key_)) {
            builder_.problem(keyLine_, key_ + " must be a text in double quotes");
        }
    }

    PlanBuilder& builder_;
    const std::size_t& line_;
    std::string_view text_;
    int depth_ = 0;
    std::string key_;
    std::size_t keyLine_ = 0;
    std::size_t rowLine_ = 0;
    std::set<std::string> keysOfRow_;
    bool failed_ = false;
};

Plan readJsonPlan(std::string_view text) {
    PlanBuilder builder;
    std::size_t line = 1;
    JsonPlanReader reader(builder, line, text);
    const LineCounter begin(text.data(), &line);
    const LineCounter end(text.data() + text.size(), &line);
    nlohmann::json::sax_parse(begin, end, &reader);
    return builder.finish(line);
}

}  // namespace

const std::vector<std::string>& plannedKeys() {
    static const std::vector<std::string> keys = {
        key::kIp,    key::kNetmask,  key::kGateway,    key::kIpScheme,
        key::kNtpIp, key::kSyslogIp, key::kNameserver,
    };
    return keys;
}

Plan readPlan(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first != std::string_view::npos && text[first] == '[') {
        return readJsonPlan(text);
    }
    return readCsvPlan(text);
}

std::vector<Change> planChanges(const PlanRow& row, const lcfd::Reply& status) {
    std::vector<Change> changes;
    for (const auto& [fieldKey, value] : row.values) {
        const std::string* reported = status.find(fieldKey);
        const std::string now = reported != nullptr ? *reported : std::string();
        if (now != value) {
            changes.push_back(Change{fieldKey, now, value});
        }
    }
    return changes;
}

std::string describeChanges(const std::vector<Change>& changes) {
    std::string text;
    for (const Change& change : changes) {
        text += (text.empty() ? "" : ", ") + change.key + " " +
                (change.from.empty() ? std::string("-") : change.from) + " -> " + change.to;
    }
    return text;
}

}  // namespace lcf
