// Writes that must survive a crash: flushing a file to the disk, and putting a new file in the
// place of an old one in a single step.
#pragma once

// FlushFileBuffers: the file's data and size reach the disk before this returns (fsync).
// 0, or -1 with errno set.
int plat_fsync(int fd);

// MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH): `to` is replaced by
// `from` in one step (rename), so that a reader sees either the old file or the new one, never
// a mix; write-through there means the move itself is on the disk when this returns, which on
// Linux takes an fsync of the folder that holds `to`. Both must be in the same file system.
// 0, or -1 with errno set (the rename did not happen, or its folder could not be synced).
int plat_rename_replace(const char* from, const char* to);
