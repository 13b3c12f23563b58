#include "client/Rendering.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "client/Csv.hpp"
#include "wire/MessageFormat.hpp"

namespace lcf {
namespace {

namespace key = lcfd::key;

constexpr const char* kEmptyCell = "-";
constexpr const char* kOutsideMark = "outside subnet";
constexpr const char* kDuplicateMark = "duplicate IP";
// Where a controller answered: a column of the table and the CSV, a key of the JSON.
constexpr const char* kInterfaceColumn = "interface";

// The notes on a controller, for the table's last column and the details' note line.
std::string notes(const Controller& controller) {
    std::string text;
    if (controller.outsideSubnet) {
        text = kOutsideMark;
    }
    if (controller.duplicateIp) {
        text += text.empty() ? kDuplicateMark : std::string(", ") + kDuplicateMark;
    }
    return text;
}

struct Column {
    const char* heading;
    std::string (*cell)(const Controller&);
};

// Replies come from anybody on the segment: control bytes are shown as '?' so that no reply
// can move the cursor or recolour the terminal.
void appendPrintable(std::string& out, const std::string& value) {
    const std::size_t start = out.size();
    out += value;
    for (std::size_t i = start; i < out.size(); ++i) {
        const auto byte = static_cast<unsigned char>(out[i]);
        if (byte < 0x20 || byte == 0x7F) {
            out[i] = '?';
        }
    }
}

std::string orDash(const std::string& value) {
    std::string shown;
    if (value.empty()) {
        shown = kEmptyCell;
    } else {
        appendPrintable(shown, value);
    }
    return shown;
}

const std::vector<Column>& tableColumns() {
    static const std::vector<Column> columns = {
        {"MAC", [](const Controller& c) { return orDash(c.field(key::kMac)); }},
        {"IP", [](const Controller& c) { return orDash(c.field(key::kIp)); }},
        {"NETMASK", [](const Controller& c) { return orDash(c.field(key::kNetmask)); }},
        {"GATEWAY", [](const Controller& c) { return orDash(c.field(key::kGateway)); }},
        {"SCHEME", [](const Controller& c) { return orDash(c.field(key::kIpScheme)); }},
        {"HOSTNAME", [](const Controller& c) { return orDash(c.field(key::kHostname)); }},
        {"CONTROLLER", [](const Controller& c) { return orDash(c.field(key::kController)); }},
        {"SDK", [](const Controller& c) { return orDash(c.field(key::kSdkVersion)); }},
        {"UTCCLOCK", [](const Controller& c) { return orDash(c.field(key::kUtcClock)); }},
        {"INTERFACE", [](const Controller& c) { return orDash(c.interfaceName); }},
        {"NOTE", notes},
    };
    return columns;
}

// Appends `text` and the blanks that fill it up to `width`.
void appendPadded(std::string& out, const std::string& text, std::size_t width) {
    out += text;
    out.append(width - text.size(), ' ');
}

void appendRow(std::string& out, const std::vector<std::string>& cells,
               const std::vector<std::size_t>& widths) {
    const std::size_t start = out.size();
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (i + 1 == cells.size()) {
            out += cells[i];
        } else {
            appendPadded(out, cells[i], widths[i]);
            out += "  ";
        }
    }
    while (out.size() > start && out.back() == ' ') {
        out.pop_back();
    }
    out += '\n';
}

}  // namespace

std::string renderTable(const std::vector<Controller>& controllers) {
    const std::vector<Column>& columns = tableColumns();
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> headings;
    std::vector<std::size_t> widths;
    for (const Column& column : columns) {
        headings.emplace_back(column.heading);
        widths.push_back(headings.back().size());
    }
    for (const Controller& controller : controllers) {
        std::vector<std::string> row;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            row.push_back(columns[i].cell(controller));
            widths[i] = std::max(widths[i], row.back().size());
        }
        rows.push_back(std::move(row));
    }
    std::string table;
    appendRow(table, headings, widths);
    for (const auto& row : rows) {
        appendRow(table, row, widths);
    }
    const auto outside = static_cast<std::size_t>(
        std::count_if(controllers.begin(), controllers.end(),
                      [](const Controller& c) { return c.outsideSubnet; }));
    table += std::to_string(controllers.size()) +
             (controllers.size() == 1 ? " controller found" : " controllers found");
    if (outside > 0) {
        table += ", " + std::to_string(outside) + " outside the subnet of its interface";
    }
    const auto duplicates = static_cast<std::size_t>(std::count_if(
        controllers.begin(), controllers.end(), [](const Controller& c) { return c.duplicateIp; }));
    if (duplicates > 0) {
        table += ", " + std::to_string(duplicates) + " with a duplicate IP";
    }
    table += "\n";
    return table;
}

std::string renderJson(const std::vector<Controller>& controllers) {
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (const Controller& controller : controllers) {
        nlohmann::ordered_json object = nlohmann::ordered_json::object();
        for (const auto& [fieldKey, value] : controller.status.fields) {
            if (fieldKey != key::kSeqid) {
                object[fieldKey] = value;
            }
        }
        object[kInterfaceColumn] = controller.interfaceName;
        object["outside_subnet"] = controller.outsideSubnet;
        object["duplicate_ip"] = controller.duplicateIp;
        array.push_back(std::move(object));
    }
    // A reply is anybody's bytes: what is not UTF-8 is replaced rather than failing the list.
    return array.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string renderDetails(const Controller& controller) {
    std::vector<std::pair<std::string_view, const std::string*>> lines;
    lines.reserve(controller.status.fields.size() + 2);
    for (const auto& [fieldKey, value] : controller.status.fields) {
        if (fieldKey != key::kSeqid) {
            lines.emplace_back(fieldKey, &value);
        }
    }
    lines.emplace_back(kInterfaceColumn, &controller.interfaceName);
    const std::string note = notes(controller);
    if (!note.empty()) {
        lines.emplace_back("note", &note);
    }
    std::size_t width = 0;
    for (const auto& line : lines) {
        width = std::max(width, line.first.size());
    }
    std::string text;
    for (const auto& [name, value] : lines) {
        // "name:" padded to the longest name and its colon, then one blank.
        text += name;
        text += ':';
        text.append(width - name.size() + 1, ' ');
        appendPrintable(text, *value);
        text += '\n';
    }
    return text;
}

const std::vector<std::string>& csvColumns() {
    static const std::vector<std::string> columns = {
        key::kMac,      key::kIp,         key::kNetmask,    key::kGateway,
        key::kIpScheme, key::kNtpIp,      key::kSyslogIp,   key::kNameserver,
        key::kHostname, key::kController, kInterfaceColumn,
    };
    return columns;
}

std::string renderCsv(const std::vector<Controller>& controllers) {
    std::string text = csvLine(csvColumns());
    for (const Controller& controller : controllers) {
        std::vector<std::string> cells;
        for (const std::string& column : csvColumns()) {
            std::string cell;
            appendPrintable(cell, column == kInterfaceColumn ? controller.interfaceName
                                                             : controller.field(column));
            cells.push_back(std::move(cell));
        }
        text += csvLine(cells);
    }
    return text;
}

std::string formatSeconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", std::round(seconds * 10.0) / 10.0);
    return text;
}

std::string renderInterfaceSummary(const std::string& interfaceName, int probes,
                                   std::size_t controllers, const std::string& doubt) {
    std::string line = interfaceName + ": probed ";
    line += probes == 1 ? "once" : std::to_string(probes) + " times";
    line +=
        ", " + std::to_string(controllers) + (controllers == 1 ? " controller" : " controllers");
    if (controllers == 0 && !doubt.empty()) {
        line += " (" + doubt + ": looks like a virtual or container adapter)";
    }
    return line + "\n";
}

namespace {

const char* resultName(ApplyResult result) {
    switch (result) {
        case ApplyResult::WouldChange:
            return "would change";
        case ApplyResult::Changed:
            return "changed";
        case ApplyResult::AlreadyRight:
            return "already right";
        case ApplyResult::Refused:
            return "refused";
        case ApplyResult::NoAnswer:
            return "no answer";
        case ApplyResult::DidNotTake:
            break;
    }
    return "did not take";
}

std::string resultDetail(const ApplyRow& row) {
    if (row.result != ApplyResult::DidNotTake) {
        return describeChanges(row.changes);
    }
    std::string text;
    for (const Mismatch& mismatch : row.mismatches) {
        text += (text.empty() ? "" : "; ") + describe(mismatch);
    }
    return text;
}

}  // namespace

std::string renderApplyTable(const ApplyReport& report, bool dryRun) {
    const std::vector<std::string> headings = {"MAC", "LINE", "RESULT",
                                               dryRun ? "CHANGES" : "DETAIL"};
    std::vector<std::vector<std::string>> rows;
    rows.reserve(report.rows.size());
    std::vector<std::size_t> widths;
    widths.reserve(headings.size());
    for (const std::string& heading : headings) {
        widths.push_back(heading.size());
    }
    std::map<ApplyResult, std::size_t> counts;
    for (const ApplyRow& row : report.rows) {
        ++counts[row.result];
        std::vector<std::string> cells = {row.mac, std::to_string(row.line), resultName(row.result),
                                          std::string()};
        appendPrintable(cells[3], resultDetail(row));
        for (std::size_t i = 0; i < cells.size(); ++i) {
            widths[i] = std::max(widths[i], cells[i].size());
        }
        rows.push_back(std::move(cells));
    }
    std::string table;
    appendRow(table, headings, widths);
    for (const auto& row : rows) {
        appendRow(table, row, widths);
    }
    const std::size_t total = report.rows.size();
    table += std::to_string(total) + (total == 1 ? " controller: " : " controllers: ");
    const std::vector<ApplyResult> order =
        dryRun ? std::vector<ApplyResult>{ApplyResult::WouldChange, ApplyResult::AlreadyRight}
               : std::vector<ApplyResult>{ApplyResult::Changed, ApplyResult::AlreadyRight,
                                          ApplyResult::Refused, ApplyResult::NoAnswer,
                                          ApplyResult::DidNotTake};
    for (std::size_t i = 0; i < order.size(); ++i) {
        table +=
            (i == 0 ? "" : ", ") + std::to_string(counts[order[i]]) + " " + resultName(order[i]);
    }
    return table + "\n";
}

std::string joinNames(const std::vector<std::string>& names) {
    std::string joined;
    for (const std::string& name : names) {
        joined += (joined.empty() ? "" : ", ") + name;
    }
    return joined;
}

}  // namespace lcf
