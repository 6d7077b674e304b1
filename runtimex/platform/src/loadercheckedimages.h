// The image files the loader has read and found safe to map, so that loading one of
// them again needn't open and read it once more before the system does.
//
// Invariant: an entry holds the identity (device, inode, size, times of the last write
// and of the last change of the inode) that a file had when its header and segment
// table were read and found safe (safeToMap). A write to a file, a change of its size
// or a new file under a reused inode moves at least one part of the identity, so a
// file that still shows an entry's identity holds the bytes that were checked. A
// change lands in the file's times only at the granularity of the system clock, so a
// file changed within the last two seconds is not taken: two writes in one clock step
// would otherwise leave the identity as it was. At most kLimit entries: a full set
// empties before it takes one more. Safe to use from any thread.
//
// Ownership: a process-wide set of plain values.
#pragma once

#include <sys/stat.h>

namespace lumplatform::loader_internal {

// True if a file with the identity `st` was found safe to map.
bool checkedSafe(const struct stat& st);
// Remembers the identity `st` of a file just found safe to map, unless it changed
// too lately to be told apart from a later change.
void rememberSafe(const struct stat& st);

}  // namespace lumplatform::loader_internal
