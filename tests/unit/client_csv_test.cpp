#include <gtest/gtest.h>

#include "client/Csv.hpp"

namespace {

std::vector<std::vector<std::string>> cellsOf(const std::vector<lcf::CsvRecord>& records) {
    std::vector<std::vector<std::string>> cells;
    for (const auto& record : records) {
        cells.push_back(record.cells);
    }
    return cells;
}

std::vector<std::size_t> linesOf(const std::vector<lcf::CsvRecord>& records) {
    std::vector<std::size_t> lines;
    for (const auto& record : records) {
        lines.push_back(record.line);
    }
    return lines;
}

TEST(CsvWriting, QuotesOnlyWhatNeedsIt) {
    EXPECT_EQ(lcf::csvCell("198.18.0.1"), "198.18.0.1");
    EXPECT_EQ(lcf::csvCell(""), "");
    EXPECT_EQ(lcf::csvCell("Hall A,Hall B"), "\"Hall A,Hall B\"");
    EXPECT_EQ(lcf::csvCell("say \"hi\""), "\"say \"\"hi\"\"\"");
    EXPECT_EQ(lcf::csvCell("two\nlines"), "\"two\nlines\"");
    EXPECT_EQ(lcf::csvCell(" padded"), "\" padded\"");
    EXPECT_EQ(lcf::csvLine({"mac", "ip", ""}), "mac,ip,\n");
}

TEST(CsvReading, ReadsWhatItWritesAndWhatSpreadsheetsWrite) {
    std::optional<lcf::CsvError> error;
    const auto records = lcf::parseCsv(
        "mac, ip ,note\r\n"
        "\n"
        "A,1.2.3.4,\"Hall A,Hall B\"\r\n"
        "B,,\"say \"\"hi\"\"\nand more\"\n"
        "   \n"
        "C,5.6.7.8, \"quoted\" \n",
        error);
    EXPECT_FALSE(error);
    EXPECT_EQ(cellsOf(records),
              (std::vector<std::vector<std::string>>{{"mac", "ip", "note"},
                                                     {"A", "1.2.3.4", "Hall A,Hall B"},
                                                     {"B", "", "say \"hi\"\nand more"},
                                                     {"C", "5.6.7.8", "quoted"}}));
    EXPECT_EQ(linesOf(records), (std::vector<std::size_t>{1, 3, 4, 7}));
    EXPECT_EQ(cellsOf(lcf::parseCsv("a,b", error)),
              (std::vector<std::vector<std::string>>{{"a", "b"}}));
    EXPECT_TRUE(lcf::parseCsv("", error).empty());
    EXPECT_FALSE(error);
}

TEST(CsvReading, ReportsTheLineOfAQuoteNeverClosedOrTextAfterIt) {
    std::optional<lcf::CsvError> error;
    EXPECT_TRUE(lcf::parseCsv("a,b\n1,\"open\n2,3\n", error).empty());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->line, 2u);
    EXPECT_EQ(error->message, "a quoted cell is never closed");
    EXPECT_TRUE(lcf::parseCsv("a,b\n1,2\n\"x\"y,3\n", error).empty());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->line, 3u);
    EXPECT_EQ(error->message, "text after the closing quote of a cell");
}

}  // namespace
