// The STATUS values and their getters: one source per reply field, in the reply's order.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.hpp"
#include "daemon/StatusSources.hpp"
#include "wire/Replies.hpp"

namespace lcfd {
namespace {

TEST(StatusSources, OnePerReplyFieldInReplyOrder) {
    const std::vector<StatusField>& fields = statusFields();
    const std::vector<StatusSource>& sources = statusSources();
    ASSERT_EQ(sources.size(), fields.size());
    for (std::size_t i = 0; i < fields.size(); ++i) {
        EXPECT_EQ(sources[i].value, fields[i].value) << fields[i].key;
    }
}

// The device is asked in reply order: the clock only after the load average.
TEST(StatusSources, TheClockIsReadLiveInItsTurn) {
    test::ScriptedShell shell;
    shell.answer("date -u +%Y%m%d%H%M%S", "20240229235959");
    Settings settings(shell);
    settings.setIp("192.168.1.20");
    const StatusValues values = readStatusValues(settings);
    EXPECT_EQ(values.ip, "192.168.1.20");
    EXPECT_EQ(values.utcclock, "20240229235959");
    EXPECT_EQ(shell.lines(), std::vector<std::string>{"date -u +%Y%m%d%H%M%S [word]"});
}

}  // namespace
}  // namespace lcfd
