// Enumerating the service files of the package folder: the library, GLib's GKeyFile reading the
// same files, and a floor that only opens each of them, looks at its size as any reader must, reads
// it to the end and closes it.
//
// Arguments are the number of files and of sections in each.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ratio_reporter.h"
#include "tavoserviceconf.h"

namespace {

constexpr char kFolder[] = "/usr/local/etc/services.d";

// A service as packages ship them, with references for the user interface beside the texts.
std::string Section(int file, int section) {
    const std::string name = "service-" + std::to_string(file) + "-" + std::to_string(section);
    const std::string port = std::to_string(1024 + (file * 7 + section * 3) % 60000);
    std::string text = "[" + name + "]\n";
    text += "title_key=\"tree:leaf_" + name + "\"\n";
    text += "title=\"Service " + name + "\"\n";
    text += "desc_key=\"tree:desc_" + name + "\"\n";
    text += "desc=\"What the service is for, in a line of ordinary length\"\n";
    text += "desc_extra=\"Whatever else an administrator should know of it\"\n";
    text += "port_forward=\"yes\"\n";
    text += "dst.ports=\"" + port + "," + port + ":65000/tcp,udp\"\n\n";
    return text;
}

// Fills the folder; benchmarks of equal arguments share what the first of them wrote.
void Prepare(int files, int sections) {
    static std::pair<int, int> prepared;
    if (prepared == std::pair(files, sections)) {
        return;
    }
    std::filesystem::remove_all(kFolder);
    std::filesystem::create_directories(kFolder);
    for (int file = 0; file < files; ++file) {
        std::ofstream out(std::string(kFolder) + "/file-" + std::to_string(file) + ".sc");
        for (int section = 0; section < sections; ++section) {
            out << Section(file, section);
        }
    }
    prepared = {files, sections};
}

// The regular files of the folder, listed the way the library does.
template <typename Visit>
void ForEachFile(Visit visit) {
    dirent **entries = nullptr;
    const int count = scandir(kFolder, &entries, nullptr, alphasort);
    for (int i = 0; i < count; ++i) {
        if (entries[i]->d_type == DT_REG) {
            visit((std::string(kFolder) + "/" + entries[i]->d_name).c_str());
        }
        std::free(entries[i]);
    }
    std::free(entries);
}

void Library(benchmark::State &state) {
    const int files = static_cast<int>(state.range(0));
    Prepare(files, static_cast<int>(state.range(1)));
    for (auto _ : state) {
        TAVO_SERVICE_CONF *list = nullptr;
        if (TAVOServiceConfEnum(&list, TAVO_SERVICE_CONF_DIR_PACKAGE) != files) {
            state.SkipWithError("not every file was read");
        }
        TAVOServiceConfFree(list);
    }
}

// Every value of every section, as the library hands them out.
void ReadKeyFile(const char *path) {
    GKeyFile *file = g_key_file_new();
    if (g_key_file_load_from_file(file, path, G_KEY_FILE_NONE, nullptr) != 0) {
        gchar **groups = g_key_file_get_groups(file, nullptr);
        for (gchar **group = groups; *group != nullptr; ++group) {
            gchar **keys = g_key_file_get_keys(file, *group, nullptr, nullptr);
            for (gchar **key = keys; *key != nullptr; ++key) {
                gchar *value = g_key_file_get_value(file, *group, *key, nullptr);
                benchmark::DoNotOptimize(value);
                g_free(value);
            }
            g_strfreev(keys);
        }
        g_strfreev(groups);
    }
    g_key_file_free(file);
}

void GKeyFilePeer(benchmark::State &state) {
    Prepare(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        ForEachFile(ReadKeyFile);
    }
}

void ReadWhole(const char *path) {
    static char buffer[1 << 16];
    struct stat status;
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    fstat(fd, &status);
    while (read(fd, buffer, sizeof(buffer)) > 0) {
        benchmark::DoNotOptimize(buffer);
    }
    close(fd);
}

void Floor(benchmark::State &state) {
    Prepare(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        ForEachFile(ReadWhole);
    }
}

std::size_t PortBytes(TAVO_SERVICE_CONF_PORT *list) {
    std::size_t bytes = 0;
    for (; list != nullptr; list = list->pNext) {
        bytes += malloc_usable_size(list);
    }
    return bytes;
}

std::size_t RecordBytes(TAVO_SERVICE_CONF *list) {
    std::size_t bytes = 0;
    for (; list != nullptr; list = list->pNext) {
        bytes += malloc_usable_size(list);
        for (auto *section = list->pSections; section != nullptr; section = section->pNext) {
            bytes += malloc_usable_size(section) + PortBytes(section->pSrcPorts) +
                     PortBytes(section->pDstPorts);
        }
    }
    return bytes;
}

// A line of /proc/self/status in bytes (proc(5): values are in kB).
std::size_t StatusBytes(const char *field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field)) {
            return std::strtoul(line.c_str() + std::strlen(field), nullptr, 10) * 1024;
        }
    }
    return 0;
}

// How far one enumeration raises the peak of resident memory, and how much of it is records. In a
// child, so that what earlier benchmarks left in the heap does not hide the growth.
void PrintMemory(int files, int sections) {
    Prepare(files, sections);
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << "5";  // resets VmHWM, proc(5)
        const std::size_t before = StatusBytes("VmRSS:");
        TAVO_SERVICE_CONF *list = nullptr;
        TAVOServiceConfEnum(&list, TAVO_SERVICE_CONF_DIR_PACKAGE);
        const std::size_t peak = StatusBytes("VmHWM:") - before;
        const std::size_t records = RecordBytes(list);
        std::printf("%d files x %d sections: peak memory %.2f MiB, records %.2f MiB\n", files,
                    sections, static_cast<double>(peak) / (1 << 20),
                    static_cast<double>(records) / (1 << 20));
        std::fflush(stdout);
        std::_Exit(0);
    }
    waitpid(child, nullptr, 0);
}

constexpr std::pair<int, int> kSizes[] = {{100, 5}, {1000, 5}, {1, 500}};

void RegisterAll() {
    static constexpr struct {
        const char *name;
        void (*run)(benchmark::State &);
    } kFamilies[] = {{"Library", Library}, {"GKeyFile", GKeyFilePeer}, {"Floor", Floor}};
    for (const auto &[files, sections] : kSizes) {
        for (const auto &family : kFamilies) {
            benchmark::RegisterBenchmark(family.name, family.run)
                ->Args({files, sections})
                ->Repetitions(5)
                ->Unit(benchmark::kMicrosecond);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    // Emptying the folder on a developer's own machine would be a nasty surprise.
    char host[64] = "";
    gethostname(host, sizeof(host) - 1);
    if (std::strcmp(host, "appliance") != 0) {
        std::fputs("bench_enumerate runs in the private appliance only: ./dev bench\n", stderr);
        return 2;
    }
    // The heap keeps its pages between iterations, as that of a long-running back end does; else
    // the kernel's handing out of memory is most of what is measured.
    mallopt(M_TRIM_THRESHOLD, 1 << 28);
    mallopt(M_MMAP_THRESHOLD, 1 << 28);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    RegisterAll();
    tavo::bench::RatioReporter reporter("Library", {"GKeyFile", "Floor"});
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const auto &[files, sections] : kSizes) {
        PrintMemory(files, sections);
    }
    return 0;
}
