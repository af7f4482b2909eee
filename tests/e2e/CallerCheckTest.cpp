// Who may talk to the "pelk" socket: only a process named exactly
// "system_server" whose parent is a zygote running as root. Every caller is
// built for real by pelkctl (re-executed processes with those names).
#include "Daemon.h"

namespace {

using e2e::pelkctl;
using e2e::pidsLogged;

const char kNotSystemServer[] = "Process(PID: %d) is not the system_server!!\n";
const char kIsSystemServer[] = "Process(PID: %d) is the system_server..\n";
const char kNotAndroidSystemServer[] = "[PID: %d] is not android system_server!!\n";

class CallerCheck : public e2e::DaemonTest {};

struct Refused {
    const char* mode;
    const char* logFormat;  // the line naming the refused pid
};

class RefusedCaller : public CallerCheck, public testing::WithParamInterface<Refused> {};

TEST_P(RefusedCaller, GetsPermissionDeniedAndTheCommandDoesNotRun) {
    auto r = pelkctl({"--caller", GetParam().mode, "is_mounted", "10"});
    ASSERT_EQ(1u, r.lines.size());
    EXPECT_EQ("281 1 failed Permission denied", r.lines[0]);
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(1u, pidsLogged(GetParam().logFormat, ANDROID_LOG_ERROR).size());
    EXPECT_EQ(0, e2e::commandLinesLogged()) << "the refused command ran";
}

INSTANTIATE_TEST_SUITE_P(Callers, RefusedCaller,
                         testing::Values(Refused{"other-name", kNotSystemServer},
                                         Refused{"full-path", kNotSystemServer}, Refused{"suffix", kNotSystemServer},
                                         Refused{"self", kNotSystemServer},
                                         Refused{"not-zygote", kNotAndroidSystemServer},
                                         Refused{"zygote-not-root", kNotAndroidSystemServer}),
                         [](const testing::TestParamInfo<Refused>& info) {
                             std::string name = info.param.mode;
                             for (char& ch : name) {
                                 if (ch == '-') ch = '_';
                             }
                             return name;
                         });

TEST_F(CallerCheck, BothZygotesAreAccepted) {
    for (const char* mode : {"system_server", "zygote"}) {
        auto r = pelkctl({"--caller", mode, "is_mounted", "10"});
        ASSERT_EQ(1u, r.lines.size()) << mode;
        EXPECT_EQ("200 1 success", r.lines[0]) << mode;
        EXPECT_EQ(0, r.status) << mode;
    }
    EXPECT_EQ(2u, pidsLogged(kIsSystemServer, ANDROID_LOG_DEBUG).size());
}

TEST_F(CallerCheck, APassedCallerIsRememberedUntilSystemServerRestarts) {
    // Three lines of one system_server: checked in full once.
    auto first = pelkctl({}, "is_mounted 10\nis_mounted 11\nis_mounted 12\n");
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "200 2 success", "200 3 success"}), first.lines);
    std::vector<int> checked = pidsLogged(kIsSystemServer, ANDROID_LOG_DEBUG);
    ASSERT_EQ(1u, checked.size());

    // A restarted system_server has a new pid and is checked again.
    auto second = pelkctl({"is_mounted", "10"});
    EXPECT_EQ(std::vector<std::string>{"200 1 success"}, second.lines);
    checked = pidsLogged(kIsSystemServer, ANDROID_LOG_DEBUG);
    ASSERT_EQ(2u, checked.size());
    EXPECT_NE(checked[0], checked[1]);
}

TEST_F(CallerCheck, ARefusedCallerKeepsItsConnection) {
    auto r = pelkctl({"--caller", "suffix"}, "is_mounted 10\nreset_partition 1\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 failed Permission denied", "281 2 failed Permission denied"}), r.lines);
    EXPECT_EQ(2u, pidsLogged(kNotSystemServer, ANDROID_LOG_ERROR).size());
}

TEST_F(CallerCheck, PrivateModeSocketServesAnyCaller) {
    // The same line from the same impostor: served on "ppm", which has no
    // caller check, and refused on "pelk", where the word is not even known.
    auto ppm = pelkctl({"--socket", "ppm", "--caller", "self", "unmount_privatemode", "0", "/x"});
    EXPECT_EQ(std::vector<std::string>{"200 1 success"}, ppm.lines);
    auto wrongCount = pelkctl({"--socket", "ppm", "--caller", "suffix", "unmount_privatemode", "0"});
    EXPECT_EQ(std::vector<std::string>{"501 1 given argc [2] != expected [3]"}, wrongCount.lines);
    auto pelk = pelkctl({"privatemode_change_password", "0", "a", "b"});
    EXPECT_EQ(std::vector<std::string>{"500 1 Command not recognized"}, pelk.lines);
    EXPECT_TRUE(pidsLogged(kNotSystemServer, ANDROID_LOG_ERROR).empty());
}

}  // namespace
