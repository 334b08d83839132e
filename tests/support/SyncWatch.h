#pragma once

#include <sys/types.h>

#include <functional>

namespace TestSupport
{

// Called at each syncfs(2) of this process, before it takes place: a test looks at the drive then,
// or makes what follows fail. Empty at the start. The suite links the library sync_watch.
extern std::function<void()> whenSynced;

// The same for each fsync(2), that of a file as well as that of a directory.
extern std::function<void()> whenFileSynced;

// The same for each wait of sync_file_range(2), with the number of bytes that are waited for; 0 are
// all.
extern std::function<void(off_t size)> whenAwaited;

} // namespace TestSupport
