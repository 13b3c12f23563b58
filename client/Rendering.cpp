#include "client/Rendering.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "protocol/MessageFormat.hpp"

namespace lcf {
namespace {

namespace key = lcfd::key;

constexpr const char* kEmptyCell = "-";
constexpr const char* kOutsideMark = "outside subnet";

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
        {"NOTE",
         [](const Controller& c) { return std::string(c.outsideSubnet ? kOutsideMark : ""); }},
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
        object["interface"] = controller.interfaceName;
        object["outside_subnet"] = controller.outsideSubnet;
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
    lines.emplace_back("interface", &controller.interfaceName);
    static const std::string outsideMark = kOutsideMark;
    if (controller.outsideSubnet) {
        lines.emplace_back("note", &outsideMark);
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

}  // namespace lcf
