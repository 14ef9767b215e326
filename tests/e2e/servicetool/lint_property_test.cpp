// Checks that lint reports errors exactly for what the library rejects, with thousands of random
// files made of nearly valid pieces and with valid files with a few changed bytes.
#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "lint_oracle.h"

namespace tavo::test {
namespace {

class RandomFiles {
  public:
    explicit RandomFiles(unsigned seed) : random_(seed) {}

    std::string FromPieces() {
        std::string text;
        for (std::size_t lines = Below(24); lines > 0; --lines) {
            text += Line() + OneOf({"\n", "\n", "\n", "\r\n", "\n\n", " \n"});
        }
        return text;
    }

    std::string Changed(std::string text) {
        for (std::size_t changes = 1 + Below(3); changes > 0; --changes) {
            const std::size_t at = Below(text.size());
            switch (Below(3)) {
                case 0:
                    text[at] = static_cast<char>(Below(256));
                    break;
                case 1:
                    text.erase(at, 1 + Below(4));
                    break;
                default:
                    text.insert(at,
                                OneOf({"\n", "]", "[", "=", "\"", ",", ":", "/", "0", "x", " "}));
                    break;
            }
            if (text.empty()) {
                break;
            }
        }
        return text;
    }

  private:
    std::size_t Below(std::size_t limit) { return random_() % limit; }

    std::string OneOf(const std::vector<std::string> &choices) {
        return choices[Below(choices.size())];
    }

    std::string Line() {
        switch (Below(12)) {
            case 0:
            case 1:
                return OneOf({"[a]", "[b]", "[global]", "[A]", "[a b]", "[]", "[ a ]", "[x.y-z_1]",
                              "  [c]  ", "[a", "a]", "[[a]]", "[a=b]"});
            case 2:
                return OneOf({"", " ", "# c", "; c", "stray", "=x", std::string("nul\0=x", 6)});
            case 3:
            case 4:
            case 5:
                return OneOf({"dst.ports", "src.ports", "dst.ports"}) + OneOf({"=", " = ", "=\t"}) +
                       Quotes(PortList());
            default:
                return OneOf({"title", "title", "desc", "desc", "title_key", "desc_key",
                              "desc_extra", "port_forward", "version", "support_key", "Title"}) +
                       OneOf({"=", " = "}) + Quotes(OneOf({"", "x", "yes", "a:b", "a:b:c:d", "1"}));
        }
    }

    std::string Quotes(const std::string &value) {
        const std::string quote = OneOf({"", "\"", "\"", "\"", "'"});
        return quote + value + (Below(12) == 0 ? "" : quote);
    }

    std::string PortList() {
        std::string list = Item();
        while (Below(3) == 0) {
            list += OneOf({",", ",", ",", ", ", ";", " "}) + Item();
        }
        return list + OneOf({"", "", "/", "/tcp", "/udp", "/TCP", "/tcp,udp", "/tcp, udp ", "/ ",
                             "/sctp", "/tcp,", "/tcp/udp", " /udp", "/,"});
    }

    std::string Item() {
        const std::string port = OneOf({"80", "0", "65535", "443", "00080", "65536", "4294967376",
                                        "99999999999999999999", "", "-1", "+1", "1x", " 7 "});
        return Below(4) == 0 ? port + OneOf({":", ":", " : ", "-", "::"}) + OneOf({"90", "1", ""})
                             : (Below(3) == 0 ? port : "80");
    }

    std::mt19937 random_;
};

constexpr char kGoodFile[] =
    "[global]\nversion=\"1\"\n\n"
    "[web]\ntitle=\"Web\"\ndesc=\"Pages\"\ndst.ports=\"80,443/tcp\"\n"
    "# more\n[files]\ntitle=\"Files\"\ndesc=\"Folders\"\nport_forward=\"yes\"\n"
    "src.ports=\"1024:65535\"\ndst.ports=\"137:139/udp\"\n";

unsigned Seed() {
    static const unsigned seed = std::random_device()();
    return seed;
}

TEST(LintAndLibrary, AgreeOnFilesOfRandomPieces) {
    SCOPED_TRACE("seed " + std::to_string(Seed()));
    RandomFiles files(Seed());
    for (int i = 0; i < 3000; ++i) {
        const std::string text = files.FromPieces();
        ASSERT_EQ(Contradiction(text), "") << "file " << i << ":\n" << text;
    }
}

TEST(LintAndLibrary, AgreeOnGoodFilesWithAFewBytesChanged) {
    SCOPED_TRACE("seed " + std::to_string(Seed()));
    RandomFiles files(Seed());
    ASSERT_EQ(Contradiction(kGoodFile), "");
    for (int i = 0; i < 3000; ++i) {
        const std::string text = files.Changed(kGoodFile);
        ASSERT_EQ(Contradiction(text), "") << "file " << i << ":\n" << text;
    }
}

}  // namespace
}  // namespace tavo::test
