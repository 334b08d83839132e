#pragma once

#include <functional>

namespace TestSupport
{

// Called at each syncfs(2) of this process, before it takes place: a test looks at the drive then,
// or makes what follows fail. Empty at the start. The suite links the library sync_watch.
extern std::function<void()> whenSynced;

// The same for each fsync(2), that of a file as well as that of a directory.
extern std::function<void()> whenFileSynced;

} // namespace TestSupport
