// The daemon's in-process rm: an argument vector like the shell tool's
// ("rm", options "frR", operands), never a fork.
#pragma once

// Flag of unlink_recursive: a missing path is not an error.
constexpr int UNLINK_FORCE = 2;

// Removes the operands. Answers 0, or a negative errno for the first failure.
// Kept as callers know it: -r of a tree that holds files fails right after
// the first file it removed (see unlink_recursive), and -f without -r stops
// with 0 at the first operand whose unlink leaves errno at ENOENT, leaving
// the operands after it alone.
int rm_pelkd(int argc, char** argv);

// Removes path and, for a directory, what it holds. Answers 0 or -1. Any
// non-directory met is unlinked and answers -1 even when the unlink worked,
// which ends the whole removal: a tree holding files takes one call per
// file. Kept deliberately. With UNLINK_FORCE a missing path answers 0.
int unlink_recursive(const char* path, int flags);
