#include "command/CommandListenerPrivate.h"

#include "command/CommandLog.h"

CommandListenerPrivate::CommandListenerPrivate() : FrameworkListener("ppm", true) {
    registerCmd(new mountPrivateModeCmd());
    registerCmd(new unmountPrivateModeCmd());
    registerCmd(new chPrivateModepasswdCmd());
}

CommandListenerPrivate::~CommandListenerPrivate() {}

void CommandListenerPrivate::dumpArgs(int argc, char** argv) { pelk::logCommandLine(argc, argv); }
