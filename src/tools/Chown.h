// The daemon's in-process chown: an argument vector like the shell tool's
// ("chown", "<USER>[:GROUP]", files...), never a fork.
#pragma once

// Changes the owner of argv[2] onward (links followed). The owner word takes a
// name or a number (base 0: 0x.. hex, 0.. octal) and an optional group after
// ":" or, without ":", after "."; no group leaves the group as it is.
// Answers 0; 10 when argc <= 2; -22 for an unknown user or group (a name
// that holds no leading digit) and for the first failed chown. With
// `recursive` only argv[2] is walked, by chown_recursive, and its result is
// the answer: files after the first are ignored, as callers have always seen.
int chown_pelkd(int argc, char** argv, int recursive);

// Owner change of a tree, children before their directory; symbolic links
// are never changed. Answers 0 (also for a path that does not exist), -1 when
// the path cannot be looked at or a directory cannot be opened or closed, the
// chown result of a file or of the directory itself, and a positive errno
// when a child answered a negative value: a walk stops there, and the sign
// change means a parent of that directory carries on with its next entry.
int chown_recursive(const char* path, unsigned int uid, unsigned int gid);

// The same walk, for the migration of a container's files.
int chown_migration(char* path, unsigned int uid, unsigned int gid);
