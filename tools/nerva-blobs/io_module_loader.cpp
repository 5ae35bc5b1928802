#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "errors.h"
#include "io_module.h"

namespace nerva_blobs {
namespace {

namespace fs = std::filesystem;

constexpr const char* kModuleName = "nerva-blobs-io.so";

// The directory of the running program, through /proc: argv[0] may be a bare
// name found on PATH, or a symbolic link elsewhere.
fs::path executable_dir()
{
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    return ec ? fs::path() : self.parent_path();
}

// Beside the program first: the build tree and the Python package keep it
// there. Then where an installation puts it, found from the program's own
// directory so that an installed prefix can be moved.
std::vector<fs::path> candidate_paths()
{
    const fs::path dir = executable_dir();
    return {dir / kModuleName, (dir / NERVA_BLOBS_IO_FROM_BIN / kModuleName).lexically_normal()};
}

struct Loaded {
    const IoModule* module = nullptr;
    std::string error;
};

Loaded load()
{
    std::string reasons;
    for (const fs::path& path : candidate_paths()) {
        if (!reasons.empty()) reasons += "; ";
        void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            reasons += dlerror();  // it names the path
            continue;
        }
        using Entry = const IoModule* (*)(int);
        const auto entry = reinterpret_cast<Entry>(dlsym(handle, "nerva_blobs_io_module"));
        if (const IoModule* module = entry ? entry(kIoModuleInterface) : nullptr) return {module, {}};
        reasons += path.string() + ": built for another version of nerva-blobs";
        dlclose(handle);
    }
    return {nullptr, "cannot load the image and video I/O module: " + reasons};
}

}  // namespace

const IoModule& io_module()
{
    // Never unloaded: captures and writers it made may live until exit.
    static const Loaded loaded = load();
    if (!loaded.module) throw RuntimeError(loaded.error);
    return *loaded.module;
}

}  // namespace nerva_blobs
