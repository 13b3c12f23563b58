#pragma once

#include <string>
#include <vector>

#include "client/Apply.hpp"
#include "client/Controllers.hpp"

namespace lcf {

// An aligned table, one row per controller, and a closing count line.
std::string renderTable(const std::vector<Controller>& controllers);

// One JSON array of objects whose keys are the protocol's keys in reply order (seqid left
// out), plus "interface" and "outside_subnet".
std::string renderJson(const std::vector<Controller>& controllers);

// Every field of one controller, "key: value" per line, aligned.
std::string renderDetails(const Controller& controller);

// The columns of a CSV export, in order: the keys a plan can change first, then what tells the
// controllers apart.
const std::vector<std::string>& csvColumns();

// A header line of csvColumns() and one line per controller: a plan to edit and apply.
std::string renderCsv(const std::vector<Controller>& controllers);

// Seconds as the tool reports them: to a tenth, without trailing zeros ("11", "0.5").
std::string formatSeconds(double seconds);

// What a discovery saw on one interface, for standard error: "lan0: probed 3 times, 20
// controllers", with `doubt` (why the interface looks like a virtual or container adapter) when
// nothing answered there.
std::string renderInterfaceSummary(const std::string& interfaceName, int probes,
                                   std::size_t controllers, const std::string& doubt);

// What applying a plan did (or, in a dry run, would do) to each controller, as a table in the
// plan's order, and a closing count line.
std::string renderApplyTable(const ApplyReport& report, bool dryRun);

// The interface names joined for a sentence: "lan0", "lan0, eth1".
std::string joinNames(const std::vector<std::string>& names);

}  // namespace lcf
