// Enumerates the service files of the package folder: the library, GLib's GKeyFile reading the same
// files, and as a lower bound a program that only opens each file, checks its size as any reader
// must, reads it to the end and closes it.
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
#include <fstream>
#include <string>
#include <vector>

#include "bench_main.h"
#include "service_files.h"
#include "tavoserviceconf.h"

namespace {

using tavo::bench::EnumerateServiceFiles;
using tavo::bench::kServiceFolder;
using tavo::bench::WriteServiceFiles;

// The regular files of the folder, listed as in the library.
template <typename Visit>
void ForEachFile(Visit visit) {
    dirent **entries = nullptr;
    const int count = scandir(kServiceFolder, &entries, nullptr, alphasort);
    for (int i = 0; i < count; ++i) {
        if (entries[i]->d_type == DT_REG) {
            visit((std::string(kServiceFolder) + "/" + entries[i]->d_name).c_str());
        }
        std::free(entries[i]);
    }
    std::free(entries);
}

// Every value of every section, as the library returns them.
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
    WriteServiceFiles(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
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
    WriteServiceFiles(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
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

// Prints by how much one enumeration raises the peak of resident memory, and how much of that is
// records. Runs in a child process, so that free heap memory of earlier benchmarks does not hide
// the growth.
void PrintMemory(int files, int sections) {
    WriteServiceFiles(files, sections);
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
    } kFamilies[] = {
        {"Library", EnumerateServiceFiles<>}, {"GKeyFile", GKeyFilePeer}, {"Floor", Floor}};
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
    tavo::bench::RatioReporter reporter(
        {{"Library", "GKeyFile", 0.6, "1000/5"}, {"Library", "Floor", 4.5, "1000/5"}});
    const int status = tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
    for (const auto &[files, sections] : kSizes) {
        if (status == 0) {
            PrintMemory(files, sections);
        }
    }
    return status;
}
