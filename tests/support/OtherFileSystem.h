#pragma once

namespace TestSupport
{

// While it exists, every open file says to this process that it lies on a file system of that type
// (f_type of statfs(2)), as on a drive whose file system this kernel may not have. The suite links
// the library other_file_system.
class OtherFileSystem
{
public:
    explicit OtherFileSystem(long type);
    ~OtherFileSystem();

    OtherFileSystem(const OtherFileSystem &) = delete;
    OtherFileSystem &operator=(const OtherFileSystem &) = delete;
};

} // namespace TestSupport
