#include "command/CommandListenerEnterprise.h"

#include "command/CommandLog.h"

CommandListenerEnterprise::CommandListenerEnterprise() : FrameworkListener("pelk", true) {
    // The order is the one system_server has always seen.
    registerCmd(new mountCmd());
    registerCmd(new unmountCmd());
    registerCmd(new isMountedCmd());
    registerCmd(new chpasswdCmd());
    registerCmd(new verifyPasswdCmd());
    registerCmd(new createPartCmd());
    registerCmd(new removePartCmd());
    registerCmd(new resetPartCmd());
    registerCmd(new scanDirCmd());
    registerCmd(new copyCmd());
    registerCmd(new changePermissionMigrationCmd());
    registerCmd(new mountLegacyCmd());
    registerCmd(new unmountLegacyCmd());
    registerCmd(new migrationCmd());
    registerCmd(new isFileExistCmd());
    registerCmd(new dlpNotifyCmd());
    registerCmd(new getFileInfoCmd());
    registerCmd(new deleteFileCmd());
    registerCmd(new syncFSCmd());
    registerCmd(new premountCmd());
    registerCmd(new secureFs());
    registerCmd(new handleEncPkgCmd());
}

CommandListenerEnterprise::~CommandListenerEnterprise() {}

void CommandListenerEnterprise::dumpArgs(int argc, char** argv) { pelk::logCommandLine(argc, argv); }
