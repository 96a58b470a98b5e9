// Loading the library late with dlopen (as a plug-in host would) and building paths with it on several threads.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

// The library is found where the build put it, or where KELVO_DLOPEN_LIBRARY
// says (the installed copy, in the project's CI).
std::string libraryPath()
{
    char const* const chosen = std::getenv("KELVO_DLOPEN_LIBRARY");
    return chosen && *chosen ? chosen : KELVO_LIBRARY_PATH;
}

// The members are reached by their exported names, called as the platform's
// C++ calling convention lays them out: the object first, and a by-value
// result through a pointer to its room before that.
using Construct = void (*)(void* self, char const* utf8);
using Destroy = void (*)(void* self);
using NativeString = std::string (*)(void const* self);
using Part = void (*)(void* result, void const* self);

struct Library {
    void* handle = nullptr;
    Construct construct = nullptr;
    Destroy destroy = nullptr;
    NativeString nativeString = nullptr;
    Part filename = nullptr;
    Part parentPath = nullptr;
};

// Room for one path, larger than the type itself.
struct alignas(16) PathRoom {
    unsigned char bytes[64];
};

template <typename Function>
Function find(void* handle, char const* name)
{
    return reinterpret_cast<Function>(dlsym(handle, name));
}

TEST(LibraryDlopen, LoadsLateAndBuildsPathsOnSeveralThreads)
{
    Library library;
    // Kept mapped after dlclose, as ICU, loaded with it, keeps data for the
    // process's life that must stay reachable.
    library.handle = dlopen(libraryPath().c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    ASSERT_NE(library.handle, nullptr) << dlerror();
    library.construct = find<Construct>(library.handle, "_ZN5kelvo10filesystem4PathC1EPKc");
    library.destroy = find<Destroy>(library.handle, "_ZN5kelvo10filesystem4PathD1Ev");
    library.nativeString = find<NativeString>(library.handle, "_ZNK5kelvo10filesystem4Path12nativeStringB5cxx11Ev");
    library.filename = find<Part>(library.handle, "_ZNK5kelvo10filesystem4Path8filenameEv");
    library.parentPath = find<Part>(library.handle, "_ZNK5kelvo10filesystem4Path10parentPathEv");
    ASSERT_NE(library.construct, nullptr);
    ASSERT_NE(library.destroy, nullptr);
    ASSERT_NE(library.nativeString, nullptr);
    ASSERT_NE(library.filename, nullptr);
    ASSERT_NE(library.parentPath, nullptr);

    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&library, &wrong, t] {
            // Enough paths made and dropped for each thread's store of texts
            // to fill and be reused.
            for (int i = 0; i < 500; ++i) {
                std::string const text = "/d\xC3\xA9j\xC3\xA0/" + std::to_string(t) + "/Re\xCC\x81sume\xCC\x81-"
                    + std::to_string(i) + ".txt";
                PathRoom path, name, parent;
                library.construct(&path, text.c_str());
                library.filename(&name, &path);
                library.parentPath(&parent, &path);
                if (library.nativeString(&path) != text)
                    ++wrong;
                if (library.nativeString(&name) != "Re\xCC\x81sume\xCC\x81-" + std::to_string(i) + ".txt")
                    ++wrong;
                if (library.nativeString(&parent) != "/d\xC3\xA9j\xC3\xA0/" + std::to_string(t))
                    ++wrong;
                library.destroy(&parent);
                library.destroy(&name);
                library.destroy(&path);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
    // Threads that ended gave their stores back.
    EXPECT_EQ(dlclose(library.handle), 0);
}

} // namespace
