#include "file_calls.h"

#include <dlfcn.h>
#include <sys/mman.h>

#include <cerrno>
#include <csignal>
#include <cstddef>

namespace
{

struct Watch
{
    int count;
    int chosen;
    int error;
    char const* met;
};

// What a child writes its parent reads.
Watch* const watch = static_cast<Watch*>(
    ::mmap(nullptr, sizeof(Watch), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

bool isWatched = false;

/// Whether the call is to be done. Does not come back when the process is to be killed.
template <class HalfOfIt> bool shallDo(char const* name, HalfOfIt const& doHalf)
{
    if (!isWatched)
        return true;
    if (++watch->count != watch->chosen)
        return true;
    watch->met = name;
    if (watch->error == FileCalls::c_kill) {
        doHalf();
        std::raise(SIGKILL);
    }
    errno = watch->error;
    return false;
}

bool shallDo(char const* name)
{
    return shallDo(name, [] {});
}

} // namespace

FileCalls::FileCalls(int call, int error)
{
    *watch = {0, call, error, ""};
    isWatched = true;
}

FileCalls::~FileCalls()
{
    isWatched = false;
}

QString FileCalls::met()
{
    return QString::fromLatin1(watch->met);
}

// Under names of their own for the compiler, which knows the C library's declarations and, with
// fortification, its definitions; what these take as "..." comes in the same way as a declared argument.
#define FILE_CALL(result, name, parameters, arguments)                                                       \
    extern "C" __attribute__((visibility("default"))) result watched_##name parameters __asm__(#name);       \
    result watched_##name parameters                                                                         \
    {                                                                                                        \
        static auto const real = reinterpret_cast<decltype(&watched_##name)>(::dlsym(RTLD_NEXT, #name));     \
        return shallDo(#name) ? real arguments : -1;                                                         \
    }

FILE_CALL(int, open, (char const* file, int flags, unsigned mode), (file, flags, mode))
FILE_CALL(int, open64, (char const* file, int flags, unsigned mode), (file, flags, mode))
FILE_CALL(int, close, (int file), (file))
FILE_CALL(std::ptrdiff_t, read, (int file, void* to, std::size_t size), (file, to, size))
FILE_CALL(long, lseek64, (int file, long offset, int whence), (file, offset, whence))
FILE_CALL(int, fsync, (int file), (file))
FILE_CALL(int, fdatasync, (int file), (file))
FILE_CALL(int, ftruncate, (int file, long size), (file, size))
FILE_CALL(int, ftruncate64, (int file, long size), (file, size))
FILE_CALL(int, chmod, (char const* file, unsigned mode), (file, mode))
FILE_CALL(int, fchmod, (int file, unsigned mode), (file, mode))
FILE_CALL(int, flock, (int file, int operation), (file, operation))
FILE_CALL(int, fcntl, (int file, int command, void* argument), (file, command, argument))
FILE_CALL(int, rename, (char const* from, char const* to), (from, to))
FILE_CALL(int, renameat2, (int folder, char const* from, int toFolder, char const* to, unsigned flags),
          (folder, from, toFolder, to, flags))
FILE_CALL(int, link, (char const* from, char const* to), (from, to))
FILE_CALL(int, linkat, (int folder, char const* from, int toFolder, char const* to, int flags),
          (folder, from, toFolder, to, flags))
FILE_CALL(int, unlink, (char const* file), (file))
FILE_CALL(int, access, (char const* file, int mode), (file, mode))
FILE_CALL(int, stat, (char const* file, void* to), (file, to))
FILE_CALL(int, stat64, (char const* file, void* to), (file, to))
FILE_CALL(int, lstat64, (char const* file, void* to), (file, to))
FILE_CALL(int, fstat64, (int file, void* to), (file, to))
FILE_CALL(int, statx, (int folder, char const* file, int flags, unsigned mask, void* to),
          (folder, file, flags, mask, to))
FILE_CALL(std::ptrdiff_t, readlink, (char const* file, char* to, std::size_t size), (file, to, size))

extern "C" __attribute__((visibility("default"))) std::ptrdiff_t
watched_write(int file, void const* from, std::size_t size) __asm__("write");
std::ptrdiff_t watched_write(int file, void const* from, std::size_t size)
{
    static auto const real = reinterpret_cast<decltype(&watched_write)>(::dlsym(RTLD_NEXT, "write"));
    constexpr std::size_t page = 4096; // is written as a whole
    return shallDo("write", [&] { real(file, from, size > page ? size / 2 : 0); }) ? real(file, from, size)
                                                                                   : -1;
}
