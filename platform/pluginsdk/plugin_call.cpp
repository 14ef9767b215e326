// A call of plugins: its arguments, and the input text of the plugins.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "base/owners.h"
#include "platform_failure.h"
#include "plugin_folder.h"
#include "tavopluginsdk.h"

namespace {

// The plugins of the system run before those of packages.
constexpr const char *kPluginFolders[] = {"/usr/tavo/lib/plugins", "/usr/local/lib/plugins"};

// A hint: the texts of two files, and the addressee.
constexpr int kUsualArguments = 4;

using OwnedText = tavo::MallocPtr<char>;
using OwnedTable = std::unique_ptr<TLIBCSzHash, tavo::FreeWith<TLIBCSzHashFree>>;

// A name with a slash would lead out of the folders.
bool IsGroup(const char *group) {
    const std::string_view name(group);
    return !name.empty() && name.size() <= NAME_MAX && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos;
}

}  // namespace

struct TLIBPluginHandle {
    OwnedText group;
    OwnedText action;
    OwnedTable arguments;
};

namespace {

using OwnedHandle = std::unique_ptr<TLIBPluginHandle, tavo::FreeWith<TLIBPluginExit>>;

// Calls visit(key, value) for each argument, in the order of first setting.
template <typename Visit>
void ForEachArgument(const TLIBPluginHandle &handle, Visit visit) {
    const char *key = nullptr;
    const char *value = nullptr;
    for (int i = 0; TLIBCSzHashEnum(handle.arguments.get(), i, &key, &value) == 0; ++i) {
        visit(std::string_view(key), std::string_view(value));
    }
}

std::size_t RecordsSize(const TLIBPluginHandle &handle) {
    std::size_t size = 0;
    ForEachArgument(handle, [&](std::string_view key, std::string_view value) {
        size += key.size() + value.size() + sizeof("=");
    });
    return size;
}

void WriteRecords(const TLIBPluginHandle &handle, char *end) {
    ForEachArgument(handle, [&](std::string_view key, std::string_view value) {
        end += key.copy(end, key.size());
        *end++ = '=';
        end += value.copy(end, value.size());
        *end++ = '\0';
    });
}

}  // namespace

TLIBPluginHandle *TLIBPluginSDKInit(const char *szGroup, const char *szAction) {
    if (szGroup == nullptr || !IsGroup(szGroup) || szAction == nullptr) {
        TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
        return nullptr;
    }
    void *room = std::malloc(sizeof(TLIBPluginHandle));
    if (room == nullptr) {
        TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
        return nullptr;
    }
    OwnedHandle handle(new (room) TLIBPluginHandle);
    handle->group.reset(strdup(szGroup));
    handle->action.reset(strdup(szAction));
    handle->arguments.reset(TLIBCSzHashAlloc(kUsualArguments));
    if (!handle->group || !handle->action || !handle->arguments) {
        TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
        return nullptr;
    }
    return handle.release();
}

int TLIBPluginSetArg(TLIBPluginHandle *pHandle, const char *szKey, const char *szValue) {
    if (pHandle == nullptr || szKey == nullptr || *szKey == '\0' ||
        std::strchr(szKey, '=') != nullptr || szValue == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    return TLIBCSzHashSetValue(pHandle->arguments.get(), szKey, szValue);
}

int TLIBPluginAction(int nMode, TLIBPluginHandle *pHandle) {
    return TLIBPluginActionReport(nMode, pHandle, nullptr, nullptr);
}

int TLIBPluginActionReport(int /*nMode*/, TLIBPluginHandle *pHandle, TLIBPluginReport pReport,
                           void *pContext) {
    if (pHandle == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const std::size_t size = RecordsSize(*pHandle);
    const OwnedText records(static_cast<char *>(std::malloc(size > 0 ? size : 1)));
    if (!records) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    WriteRecords(*pHandle, records.get());
    const tavo::PluginReport report = {pReport, pContext};
    int result = 0;
    for (const char *folder : kPluginFolders) {
        if (tavo::RunPluginsOf(folder, pHandle->group.get(), pHandle->action.get(),
                               {records.get(), size}, report) != 0) {
            result = -1;
        }
    }
    return result;
}

void TLIBPluginExit(TLIBPluginHandle *pHandle) {
    if (pHandle != nullptr) {
        pHandle->~TLIBPluginHandle();
        std::free(pHandle);
    }
}
