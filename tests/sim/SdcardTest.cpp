// The device's "/system/bin/sdcard": exactly the engine's argument vectors,
// views as real bind mounts with the given owner, a record per run.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <persona/persona.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "SdcardRecords.h"

namespace {

const char kProgram[] = "/system/bin/sdcard";

struct Outcome {
    int status = -1;
    std::string errors;  // what it wrote on standard error
};

// Runs the program as the engine does (fork, exec, wait) with these
// arguments after argv[0].
Outcome runSdcard(const std::vector<std::string>& args) {
    Outcome out;
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return out;
    std::vector<char*> argv{const_cast<char*>(kProgram)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t child = fork();
    if (child == 0) {
        dup2(pipeFds[1], 2);
        execv(kProgram, argv.data());
        _exit(127);
    }
    close(pipeFds[1]);
    char buf[4096];
    ssize_t n;
    while ((n = read(pipeFds[0], buf, sizeof(buf))) > 0) out.errors.append(buf, n);
    close(pipeFds[0]);
    int status = 0;
    if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status)) out.status = WEXITSTATUS(status);
    return out;
}

bool makeDir(const std::string& path, mode_t mode, uid_t uid, gid_t gid) {
    for (size_t pos = path.find('/', 1);; pos = path.find('/', pos + 1)) {
        std::string prefix = path.substr(0, pos);
        if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) return false;
        if (pos == std::string::npos) break;
    }
    return chmod(path.c_str(), mode) == 0 && chown(path.c_str(), uid, gid) == 0;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct stat statOf(const std::string& path) {
    struct stat st = {};
    stat(path.c_str(), &st);
    return st;
}

std::vector<std::string> fArgs(const std::string& source, const std::string& userText, const std::string& label) {
    return {"-u", "1023", "-g", "1023", "-t", "/mnt/zanth/", "-U", userText, "-w", "-r", source, label};
}

const char* const kZanthViews[] = {"/mnt/zanth/default/emulated/150", "/mnt/zanth/read/emulated/150",
                                   "/mnt/zanth/write/emulated/150"};

}  // namespace

TEST(Sdcard, EmulatedViewsOfAContainerAreBindMountsWithTheOwner) {
    const std::string source = "/data/zanth/sdcard/150";
    ASSERT_TRUE(makeDir(source, 0770, 1023, 1023));
    std::ofstream(source + "/photo") << "pixels";

    Outcome out = runSdcard(fArgs(source, "150", "emulated/150"));
    EXPECT_EQ(out.status, 0) << out.errors;
    for (const char* view : kZanthViews) {
        EXPECT_EQ(isMountedPath(view), 1) << view;
        EXPECT_EQ(statOf(view).st_uid, 1023u) << view;
        EXPECT_EQ(statOf(view).st_gid, 1023u) << view;
        EXPECT_EQ(readFile(std::string(view) + "/photo"), "pixels") << view;
    }
    // Written through the write view, it lands in the source.
    std::ofstream("/mnt/zanth/write/emulated/150/note") << "n";
    EXPECT_EQ(readFile(source + "/note"), "n");
    // The read view is read-only.
    errno = 0;
    EXPECT_LT(open("/mnt/zanth/read/emulated/150/other", O_CREAT | O_WRONLY | O_CLOEXEC, 0600), 0);
    EXPECT_EQ(errno, EROFS);

    auto runs = sim::sdcardRuns();
    ASSERT_EQ(runs.size(), 1u);
    std::vector<std::string> argv{kProgram};
    for (const std::string& a : fArgs(source, "150", "emulated/150")) argv.push_back(a);
    EXPECT_EQ(runs[0].argv, argv);
    EXPECT_EQ(runs[0].status, 0);
    EXPECT_EQ(runs[0].views, std::vector<std::string>(std::begin(kZanthViews), std::end(kZanthViews)));
}

TEST(Sdcard, AUserOfFourDigitsComesWithItsCutFlag) {
    const std::string source = "/data/zanth/sdcard/1234";
    ASSERT_TRUE(makeDir(source, 0770, 1023, 1023));
    Outcome out = runSdcard(fArgs(source, "123", "emulated/1234"));
    EXPECT_EQ(out.status, 0) << out.errors;
    EXPECT_EQ(isMountedPath("/mnt/zanth/default/emulated/1234"), 1);
    EXPECT_EQ(isMountedPath("/mnt/zanth/write/emulated/1234"), 1);
    // The flag must be the label's user cut to three digits.
    EXPECT_EQ(runSdcard(fArgs(source, "1234", "emulated/1234")).status, 1);
    EXPECT_EQ(runSdcard(fArgs(source, "124", "emulated/1234")).status, 1);
}

TEST(Sdcard, PrivateModeViewsUnderTheRuntimeTree) {
    ASSERT_TRUE(makeDir("/data/privatemode", 0771, 1000, 1000));
    Outcome out = runSdcard({"-u", "1000", "-g", "1000", "-w", "-r", "/data/privatemode", "Private"});
    EXPECT_EQ(out.status, 0) << out.errors;
    for (const char* view :
         {"/mnt/runtime/default/Private", "/mnt/runtime/read/Private", "/mnt/runtime/write/Private"}) {
        EXPECT_EQ(isMountedPath(view), 1) << view;
        EXPECT_EQ(statOf(view).st_uid, 1000u) << view;
    }
}

TEST(Sdcard, SecureFsMediaHasOneViewAtItsLastArgument) {
    ASSERT_TRUE(makeDir("/data/zanth/secure_fs/enc_media", 0771, 1000, 1000));
    Outcome out = runSdcard(
        {"-u", "1000", "-g", "1000", "-m", "-s", "-r", "/data/zanth/secure_fs/enc_media", "/mnt/shell/enc_emulated"});
    EXPECT_EQ(out.status, 0) << out.errors;
    EXPECT_EQ(isMountedPath("/mnt/shell/enc_emulated"), 1);
    EXPECT_EQ(statOf("/mnt/shell/enc_emulated").st_gid, 1000u);
    EXPECT_EQ(sim::sdcardRuns().at(0).views, std::vector<std::string>{"/mnt/shell/enc_emulated"});
}

TEST(Sdcard, OtherArgumentVectorsGetTheUsageLineAndNothingIsMounted) {
    ASSERT_TRUE(makeDir("/data/zanth/sdcard/150", 0770, 1023, 1023));
    const std::vector<std::vector<std::string>> refused = {
        {},
        {"-u", "1023"},
        {"-u", "1000", "-g", "1023", "-t", "/mnt/zanth/", "-U", "150", "-w", "-r", "/data/zanth/sdcard/150",
         "emulated/150"},
        {"-u", "1023", "-g", "1023", "-t", "/mnt/other/", "-U", "150", "-w", "-r", "/data/zanth/sdcard/150",
         "emulated/150"},
        {"-u", "1023", "-g", "1023", "-t", "/mnt/zanth/", "-U", "150", "-w", "-r", "/data/zanth/sdcard/150",
         "emulated/abc"},
        {"-u", "1023", "-g", "1023", "-t", "/mnt/zanth/", "-U", "150", "-r", "-w", "/data/zanth/sdcard/150",
         "emulated/150"},
        {"-u", "1023", "-g", "1023", "-t", "/mnt/zanth/", "-U", "150", "-w", "-r", "", "emulated/150"},
        {"-u", "1000", "-g", "1000", "-w", "-r", "/data/privatemode", "Public"},
        {"-u", "1000", "-g", "1000", "-m", "-s", "-r", "/data/zanth/secure_fs/enc_media", "/mnt/shell/other"},
        {"-u", "1023", "-g", "1023", "-t", "/mnt/zanth/", "-U", "150", "-w", "-r", "/data/zanth/sdcard/150",
         "emulated/150", "extra"},
    };
    for (const auto& args : refused) {
        Outcome out = runSdcard(args);
        EXPECT_EQ(out.status, 1);
        EXPECT_EQ(out.errors.compare(0, 14, "usage: sdcard "), 0) << out.errors;
    }
    for (const char* view : kZanthViews) EXPECT_EQ(isMountedPath(view), 0) << view;
    auto runs = sim::sdcardRuns();
    ASSERT_EQ(runs.size(), refused.size());
    for (const auto& run : runs) {
        EXPECT_EQ(run.status, 1);
        EXPECT_TRUE(run.views.empty());
    }
    EXPECT_EQ(runs[0].argv, std::vector<std::string>{kProgram});
}

TEST(Sdcard, AMissingSourceFailsAndLeavesNoViewBehind) {
    Outcome out = runSdcard(fArgs("/data/zanth/sdcard/151", "151", "emulated/151"));
    EXPECT_EQ(out.status, 1);
    EXPECT_NE(out.errors.find("sdcard: "), std::string::npos);
    for (const char* view : {"/mnt/zanth/default/emulated/151", "/mnt/zanth/read/emulated/151"})
        EXPECT_EQ(isMountedPath(view), 0);
    EXPECT_EQ(sim::sdcardRuns().at(0).status, 1);
}

TEST(Sdcard, TheDescriptorsItInheritedAreRecorded) {
    ASSERT_TRUE(makeDir("/data/zanth/sdcard/150", 0770, 1023, 1023));
    int qseecom = open("/dev/qseecom", O_RDWR);  // inheritable on purpose
    ASSERT_GE(qseecom, 0);
    int closed = open("/dev/qseecom", O_RDWR | O_CLOEXEC);
    ASSERT_GE(closed, 0);
    Outcome out = runSdcard(fArgs("/data/zanth/sdcard/150", "150", "emulated/150"));
    EXPECT_EQ(out.status, 0) << out.errors;
    auto runs = sim::sdcardRuns();
    ASSERT_EQ(runs.size(), 1u);
    // The inheritable one is there, the close-on-exec one is not (the test's
    // own caller may have left other descriptors open).
    std::vector<std::string> onQseecom;
    for (const std::string& fd : runs[0].inheritedFds)
        if (fd.size() > 13 && fd.compare(fd.size() - 13, 13, " /dev/qseecom") == 0) onQseecom.push_back(fd);
    EXPECT_EQ(onQseecom, std::vector<std::string>{std::to_string(qseecom) + " /dev/qseecom"});
    close(qseecom);
    close(closed);
    sim::sdcardClear();
    EXPECT_TRUE(sim::sdcardRuns().empty());
}

TEST(Sdcard, TheSecureExecutionDeviceIsThereToHold) {
    struct stat st = statOf("/dev/qseecom");
    EXPECT_EQ(st.st_mode & 07777, 0660u);
    EXPECT_EQ(st.st_uid, 1000u);
    EXPECT_EQ(st.st_gid, 1026u);
    int fd = open("/dev/qseecom", O_RDWR | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    if (fd >= 0) close(fd);
}
