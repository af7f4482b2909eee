// The daemon's in-process mkdir: an argument vector like the shell tool's
// ("mkdir", [-p | --parents], targets), never a fork.
#pragma once

// Makes each target with mode 0777 (before umask). Without -p the first
// failure ends the run, an existing directory included, and its mkdir result
// (-1) is the answer. With -p every missing directory along each target is
// made and given to `owner` (a chown owner word, e.g. "1000.1000") through
// chown_pelkd; directories that exist keep their owner; a component that
// would take the path past 4094 characters answers 1, and a negative chown
// result is the answer. The usage goes to standard error with -1 when no
// target is given or argv[1] is "--help". The -p targets are cut up in place.
int mkdir_pelkd(int argc, char** argv, const char* owner);
