#include "client/Rendering.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

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
std::string printable(const std::string& value) {
    std::string shown = value;
    for (char& c : shown) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            c = '?';
        }
    }
    return shown;
}

std::string orDash(const std::string& value) {
    return value.empty() ? kEmptyCell : printable(value);
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

std::string padded(const std::string& text, std::size_t width) {
    return text + std::string(width - text.size(), ' ');
}

std::string joinRow(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const bool last = i + 1 == cells.size();
        line += last ? cells[i] : padded(cells[i], widths[i]) + "  ";
    }
    while (!line.empty() && line.back() == ' ') {
        line.pop_back();
    }
    return line + "\n";
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
    std::string table = joinRow(headings, widths);
    for (const auto& row : rows) {
        table += joinRow(row, widths);
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
    std::vector<std::pair<std::string, std::string>> lines;
    for (const auto& [fieldKey, value] : controller.status.fields) {
        if (fieldKey != key::kSeqid) {
            lines.emplace_back(fieldKey, value);
        }
    }
    lines.emplace_back("interface", controller.interfaceName);
    if (controller.outsideSubnet) {
        lines.emplace_back("note", kOutsideMark);
    }
    std::size_t width = 0;
    for (const auto& line : lines) {
        width = std::max(width, line.first.size());
    }
    std::string text;
    for (const auto& [name, value] : lines) {
        text += padded(name + ":", width + 1) + " " + printable(value) + "\n";
    }
    return text;
}

}  // namespace lcf
