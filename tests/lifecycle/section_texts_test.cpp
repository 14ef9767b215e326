// Texts with quotes, blanks and characters of the file's grammar. A text that is set is read back
// unchanged, whatever the old value, and keys that are not set keep their values.
#include <functional>
#include <string>
#include <vector>

#include "failing_allocation.h"
#include "set_test.h"
#include "short_texts.h"

namespace tavo::test {
namespace {

class SectionTexts : public SetTest {
  protected:
    SectionTexts() {
        Fill(section_.szName, "web");
        ports_ = MakePorts("8080/tcp");
        section_.pDstPorts = ports_.get();
    }

    int Set() override { return TLIBServiceConfSectionSet(&param_, &section_); }

    // A file with these texts in its section, and a key that is not set.
    static std::string FileWith(const std::string &title, const std::string &desc,
                                const std::string &other) {
        return "[web]\ntitle=" + title + "\nother = " + other + " \ndesc=" + desc +
               "\ndst.ports=8080/tcp\n";
    }

    static std::string Quoted(const std::string &text) { return '"' + text + '"'; }

    // Reads the value of a key of the section with the core library.
    static std::string Read(const char *key) {
        TLIBCSzHash *keys = TLIBCSzHashAlloc(8);
        EXPECT_GT(TLIBCFileGetSection(kFile, "web", &keys), 0);
        const char *value = TLIBCSzHashGetValue(keys, key);
        const std::string text = value == nullptr ? "absent" : value;
        TLIBCSzHashFree(keys);
        return text;
    }

    // Sets the texts in the file, and expects that they are read back and that the line of the
    // other key is identical.
    void ExpectGivenBack(const std::string &before, const std::string &title,
                         const std::string &desc) {
        WriteFile(kFile, before);
        const std::string other = Read("other");
        Fill(section_.strTitle.szText, title);
        Fill(section_.strDesc.szText, desc);
        ASSERT_EQ(Set(), 0);
        TAVO_SERVICE_CONF_SECTION *read = nullptr;
        ASSERT_EQ(TAVOServiceConfSectionGet(kFile, "web", &read), 0);
        EXPECT_EQ(read->strTitle.szText, title);
        EXPECT_EQ(read->strDesc.szText, desc);
        TAVOServiceConfSectionFree(read);
        EXPECT_EQ(Read("other"), other);
        const std::string line =
            before.substr(before.find("other"), before.find("\ndesc=") - before.find("other"));
        EXPECT_THAT(ReadFile(kFile), testing::HasSubstr(line));
    }

    // Sets each new text over the value `old`, which is quoted in one of the keys. The file is not
    // copied for the listeners, which would take most of the time.
    void ExpectEachGivenBack(const std::string &old, const std::vector<std::string> &new_texts) {
        Programs programs;
        programs.Answer("/bin/cp", 0);
        for (const std::string &text : new_texts) {
            if (text.empty()) {
                continue;  // refused
            }
            SCOPED_TRACE(testing::PrintToString(text) + " over " + testing::PrintToString(old));
            ExpectGivenBack(FileWith(old, Quoted(old), Quoted(old)), text, text);
        }
    }

    TAVO_SERVICE_CONF_SECTION section_ = {};
    Ports ports_;
};

TEST_F(SectionTexts, AreGivenBackOverEveryShortText) {
    for (const std::string &old : ShortTexts(3)) {
        ExpectEachGivenBack(old, ShortTexts(2));
    }
}

// A quoted value may be read as a text with more or fewer quotes.
TEST_F(SectionTexts, AreGivenBackOverTheSameTextInMoreOrFewerQuotes) {
    for (const std::string &old : ShortTexts(4)) {
        const bool quoted = old.size() > 2 && old.front() == '"' && old.back() == '"';
        ExpectEachGivenBack(old, {old, Quoted(old), quoted ? old.substr(1, old.size() - 2) : ""});
    }
}

TEST_F(SectionTexts, AreWrittenWithoutTheQuotesThatAreTakenOffThem) {
    WriteFile(kFile, FileWith("\"\"x\"\"", "\"d\"", "\"\"o\"\""));
    Fill(section_.strTitle.szText, "x");
    Fill(section_.strDesc.szText, "d");
    EXPECT_EQ(Set(), 0);
    EXPECT_EQ(ReadFile(kFile),
              "[web]\ntitle=\"x\"\nother = \"\"o\"\" \ndesc=\"d\"\ndst.ports=\"8080/tcp\"\n"
              "port_forward=\"no\"\n");
}

// The keys are read from one section and written to another.
TEST_F(SectionTexts, OfOtherKeysAreTheSameInASectionOfAnotherName) {
    for (const std::string &text : ShortTexts(3)) {
        SCOPED_TRACE(testing::PrintToString(text));
        WriteFile(kFile, "[old]\ntitle=T\nother=" + Quoted(text) + "\n");
        Fill(param_.szSectionName, "old");
        Fill(section_.strTitle.szText, "T");
        Fill(section_.strDesc.szText, "D");
        ASSERT_EQ(Set(), 0);
        EXPECT_EQ(Read("other"), text);
    }
}

// Without its quotes, the line would start a section.
TEST_F(SectionTexts, AreSetBesideAKeyThatCouldNotBeWritten) {
    WriteFile(kFile, "[web]\n[a=\"b]\"\ntitle=T\n");
    Fill(section_.strTitle.szText, "New");
    Fill(section_.strDesc.szText, "D");
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(ReadFile(kFile), testing::StartsWith("[web]\n[a=\"b]\"\ntitle=\"New\"\n"));
}

TEST_F(SectionTexts, ThatCannotBePutInQuotesAreLoggedAndNothingIsWritten) {
    const std::string before = FileWith("T", "D", "\"\"o\"\"");
    Fill(section_.strTitle.szText, "New");
    Fill(section_.strDesc.szText, "D");
    int unquoted = 0;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        WriteFile(kFile, before);
        log_.Clear();
        const int result = fail.During([&] { return Set(); });
        const std::vector<std::string> messages = Messages();
        if (messages == std::vector<std::string>{"Failed ot set other into Hash"}) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(TLIBCErrGet(), 0x200U);
            EXPECT_EQ(ReadFile(kFile), before);
            ++unquoted;
        }
    });
    EXPECT_GT(unquoted, 0);
}

}  // namespace
}  // namespace tavo::test
