// The package directories of an encrypted partition: their sizes, or
// clearing them, item by item. An item is refused unless its path resolves
// to itself (no link, no "..") and the package is installed.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandReply.h"
#include "partition/Partition.h"
#include "tools/PackageList.h"

namespace {

constexpr int kPkgPathSize = 8192;
constexpr size_t kSizeTextSize = 64;

// The base partitions whose package directories may be handled: 'e' to 'l'.
bool isSupportedBase(int type) { return type >= PARTITION_CE_DATA && type <= PARTITION_SDCARDFS_WRITE; }

void appendText(char* text, size_t size, const char* more) {
    size_t used = strnlen(text, size);
    if (used + 1 < size) snprintf(text + used, size - used, "%s", more);
}

}  // namespace

CommandListenerEnterprise::handleEncPkgCmd::handleEncPkgCmd() : PelkdCommand("handle_enc_pkg") {}

int CommandListenerEnterprise::handleEncPkgCmd::parseCmd(int argc, char** argv) {
    if (!pelk::countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    pelk::copyWord(mSubCommand, sizeof(mSubCommand), argv[2]);
    pelk::copyWord(mPackageName, sizeof(mPackageName), argv[3]);
    mType = atoi(argv[4]);
    mItemCount = atoi(argv[5]);
    pelk::copyWord(mItemList, sizeof(mItemList), argv[6]);
    mClearFlag = atoi(argv[7]);
    return 0;
}

int CommandListenerEnterprise::handleEncPkgCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return pelk::replyWrongCount(cli, argc, mExpectedArgc);
    if (!isSupportedBase(mType)) {
        SLOGE("Error!! unsupported base partition");
        return pelk::replyFailed(cli);
    }
    Partition partition(mUserId, mType, nullptr, false);
    char sizes[PATH_SIZE] = {};

    char* save = nullptr;
    char* item = strtok_r(mItemList, "|", &save);
    if (!item) return pelk::replyFailed(cli);
    // Neither the package's directory nor whether it is installed depends
    // on the item: each is looked up once (the package list is a file).
    char base[kPkgPathSize] = {};
    partition.getPkgPath(mPackageName, base, sizeof(base));
    const bool installed = is_valid_package(mPackageName);
    // The count is not checked against the list: the walk ends with the list.
    for (int handled = 0; item && handled < mItemCount; ++handled) {
        // Items handled before a failure stay handled (cleared stays cleared).
        if (handleItem(&partition, base, installed, item, sizes, sizeof(sizes)) != 0) return pelk::replyFailed(cli);
        item = strtok_r(nullptr, "|", &save);
    }
    if (strcmp(mSubCommand, "calculate_pkg_dir") == 0) {
        pelk::sendLongReply(cli, pelk::REPLY_OK, "%s", sizes);
    } else {
        pelk::sendLongReply(cli, pelk::REPLY_OK, "%s %s", mSubCommand, "success");
    }
    return 0;
}

int CommandListenerEnterprise::handleEncPkgCmd::handleItem(Partition* partition, const char* base, bool installed,
                                                           const char* item, char* sizes, size_t sizesSize) {
    char path[kPkgPathSize];
    snprintf(path, sizeof(path), "%s", base);
    // A relative item names a path below the package's directory; an
    // absolute one stands for the package's directory itself.
    int relative = 0;
    if (item[0] != '/') {
        appendText(path, sizeof(path), "/");
        appendText(path, sizeof(path), item);
        relative = 1;
    }
    if (Partition::isCanonicalPath(path) != 1) {
        SLOGE("Only canonical path can be handled..");
        return -1;
    }
    if (!installed) {
        SLOGE("It is not the real package on the system..");
        return -1;
    }
    if (strcmp(mSubCommand, "calculate_pkg_dir") == 0) {
        char size[kSizeTextSize];
        snprintf(size, sizeof(size), "%ld ", static_cast<long>(partition->getDirectorySize(path, relative)));
        appendText(sizes, sizesSize, size);
        return 0;
    }
    if (strcmp(mSubCommand, "clear_pkg_data_dir") == 0) {
        return partition->clearDirectory(path, mClearFlag, nullptr) == 0 ? 0 : -1;
    }
    return -1;
}
