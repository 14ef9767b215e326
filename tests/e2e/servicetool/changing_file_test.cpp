// A file that is rewritten while servicetool reads it. The test replaces the library function that
// servicetool calls and rewrites the file just before the library opens it.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "input/service_file.h"
#include "temporary_folder.h"

namespace tavo::test {

using namespace tool;

namespace {

constexpr char kOld[] = "[old]\ntitle=T\ndesc=D\ndst.ports=1\n";
constexpr char kNew[] = "[new]\ntitle=T\ndesc=D\ndst.ports=1\n";

// The texts to write before each read by the library; no write after the last one.
std::vector<std::string> writes;
std::size_t looks = 0;

void WriteNext(const char *path) {
    if (looks < writes.size()) {
        WriteFile(path, writes[looks]);
    }
    ++looks;
}

ServiceFile ReadWhileWritten(const std::string &path, std::vector<std::string> texts) {
    writes = std::move(texts);
    looks = 0;
    return ReadServiceFile(path);
}

TEST(ChangingFile, IsReadAgainUntilItRests) {
    const TemporaryFolder folder;
    for (const std::vector<std::string> &texts :
         {std::vector<std::string>{}, {kNew}, {kNew, kOld}, {"", kOld}}) {
        const ServiceFile file = ReadWhileWritten(folder.Write("a.sc", kOld), texts);
        EXPECT_EQ(file.problem, "");
        EXPECT_EQ(looks, texts.size() + 1);
        ASSERT_NE(file.conf, nullptr);
        ASSERT_EQ(file.lint.services.size(), 1U);
        EXPECT_EQ(file.conf->pSections->szName, file.lint.services[0].name);
    }
}

TEST(ChangingFile, IsGivenUpAfterThreeAttempts) {
    const TemporaryFolder folder;
    const ServiceFile file = ReadWhileWritten(
        folder.Write("a.sc", kOld), {kNew, kOld, kNew + std::string("[b]\n") + (kOld + 6)});
    EXPECT_EQ(file.problem, "changed while it was read");
    EXPECT_EQ(looks, 3U);
    EXPECT_EQ(file.conf, nullptr);
}

TEST(ChangingFile, WithANameThatTheLibraryCutsIsNone) {
    const TemporaryFolder folder;
    const std::string text = "[" + std::string(300, 'x') + "]\n" + (kOld + 6) + "[bad]\n";
    const ServiceFile file = ReadWhileWritten(folder.Write("a.sc", text), {});
    EXPECT_EQ(file.problem, "");
    EXPECT_EQ(looks, 1U);
}

}  // namespace
}  // namespace tavo::test

// The linker names the library's function __real_NAME and redirects its callers to __wrap_NAME.
extern "C" int __real_TAVOServiceConfGet(const char *path, TAVO_SERVICE_CONF **list);

extern "C" int __wrap_TAVOServiceConfGet(const char *path, TAVO_SERVICE_CONF **list) {
    tavo::test::WriteNext(path);
    return __real_TAVOServiceConfGet(path, list);
}
