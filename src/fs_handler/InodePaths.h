// Finding a file's path from the partition id of its eCryptfs mount and its
// inode number, and marking whole trees for the sensitive-data feature.
// Lines go to the system buffer with the tag "pelkd.fs_handler".
#pragma once

// Searches, in mount-table order, every mount of type fsType whose
// "partition_id=" option equals partitionId for the inode; true and the
// path in result (4096 bytes) when found. A mount without the option has
// partition id -1.
bool find_path_by_inode(int partitionId, unsigned long inode, char* fsType, char* result);

// Depth-first search of the tree at dirPath (the directory itself first,
// then entries in directory order, links never followed); true and the
// first match's path in result (4096 bytes). Only inode numbers are
// compared, never devices.
bool get_path_by_inode(char* dirPath, unsigned long inode, char* result);

// Marks path and, below it, every directory and regular file; links, device
// nodes, pipes and sockets are left alone. False when path cannot be
// stat'ed or (top already marked) opened.
bool recursive_set_sensitive(int userId, char* path);
// The same walk with set_protected (the user id is not used).
bool recursive_set_protected(int userId, char* path);
