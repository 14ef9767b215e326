// servicetool ports --svg: the picture in a separate file, and how the file is written.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "patterns.h"
#include "port_world.h"
#include "servicetool_run.h"

namespace tavo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// Reads XML as strictly as a browser does, as far as such a picture needs.
class XmlReader {
  public:
    explicit XmlReader(const std::string &text) : text_(text) { Read(); }

    const std::string &Problem() const { return problem_; }
    const std::vector<std::string> &Titles() const { return titles_; }

  private:
    void Read() {
        constexpr char kText[] =
            "^(?:[^<>&\x01-\x08\x0B\x0C\x0E-\x1F]|"
            "&(?:amp|lt|gt|quot);)*";
        constexpr char kTag[] = R"re(^<(/?)([a-z]+)((?: [a-zA-Z-]+="[^<&"]*")*)(/?)>)re";
        std::string_view rest = text_;
        while (!rest.empty() && problem_.empty()) {
            const std::string text = FirstMatch(rest, kText).value()[0];
            if (!open_.empty() && open_.back() == "title") {
                titles_.push_back(text);
            }
            rest.remove_prefix(text.size());
            if (rest.empty()) {
                break;
            }
            const std::optional<Groups> tag = FirstMatch(rest, kTag);
            if (!tag) {
                problem_ = "no tag: " + std::string(rest.substr(0, 60));
                return;
            }
            rest.remove_prefix((*tag)[0].size());
            Take(!(*tag)[1].empty(), (*tag)[2], !(*tag)[4].empty());
        }
        problem_ += open_.empty() && roots_ == 1 ? "" : " not one whole element";
    }

    void Take(bool closes, const std::string &name, bool empty) {
        if (closes) {
            if (open_.empty() || open_.back() != name) {
                problem_ = "closes what is not open: " + name;
                return;
            }
            open_.pop_back();
        } else {
            roots_ += open_.empty() ? 1 : 0;
            if (!empty) {
                open_.push_back(name);
            }
        }
    }

    std::string text_;
    std::string problem_;
    std::vector<std::string> open_;
    std::vector<std::string> titles_;
    int roots_ = 0;
};

std::string Svg(std::vector<std::string> options = {}) {
    std::vector<std::string> arguments = {"ports", "--svg", "-"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const ProgramResult result = ServiceTool(arguments);
    EXPECT_THAT(result.err, IsEmpty());
    return result.out;
}

// The tooltips of a picture, which must be valid XML.
std::vector<std::string> Tooltips(const std::string &svg) {
    const XmlReader reader(svg);
    EXPECT_THAT(reader.Problem(), IsEmpty());
    return reader.Titles();
}

class PortsSvg : public ServiceFolders {};

TEST_F(PortsSvg, ReportsEveryPortAndItsHolderInATooltip) {
    std::string services;
    for (int port = 7000; port < 7600; port += 7) {
        services += Section("s" + std::to_string(port), std::to_string(port) + "/tcp");
    }
    WriteFile(kSystem + "many.sc", services);
    const HeldPort held(Family::kV4, Protocol::kUdp, 9000);
    const std::vector<std::string> tooltips = Tooltips(Svg());
    for (int port = 7000; port < 7600; port += 7) {
        const std::string name = std::to_string(port);
        EXPECT_THAT(tooltips,
                    Contains(HasSubstr(name + "/tcp: service s" + name + " (system/many.sc)")));
    }
    EXPECT_THAT(
        tooltips,
        Contains("9000/udp: socket " + std::filesystem::read_symlink("/proc/self/exe").string() +
                 ", pid " + std::to_string(getpid()) + ", user root, UNCONNECTED"));
}

TEST_F(PortsSvg, DrawsNeighboursOfOneKindAsOne) {
    WriteFile(kSystem + "a.sc", Section("a", "30720:32767/tcp"));
    const std::string svg = Svg({"--declared"});
    EXPECT_THAT(svg, HasSubstr("<rect class=\"service\" x=\"64\" y=\"156\" width=\"1024\" "
                               "height=\"8\"><title>30720:32767/tcp: service a (system/a.sc)"
                               "</title></rect>\n"));
}

TEST_F(PortsSvg, ReportsConflicts) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp") + Section("b", "7000/tcp"));
    EXPECT_THAT(Svg(), testing::ContainsRegex("class=\"conflict\"[^>]*><title>"
                                              "7000/tcp: service a \\(system/a.sc\\) \\(in conflict"
                                              "\\)\n7000/tcp: service b \\(system/a.sc\\) \\(in "
                                              "conflict\\)</title>"));
    EXPECT_THAT(Tooltips(ServiceTool({"ports", "--svg", "-", "--conflicts"}).out),
                ElementsAre("Ports", StartsWith("7000/tcp: ")));
}

TEST_F(PortsSvg, EscapesTextsOfOthers) {
    WriteFile(kRules,
              "[1]\nservice_id=\"a\"\nservice name=\"<b>&\\'\x1b\xff\xef\xbf\xbe\"\n"
              "protocol name=\"tcp\"\ns_port=\"7000\"\nr_port=\"7000\"\n");
    EXPECT_THAT(Tooltips(Svg({"--declared"})),
                Contains("7000/tcp: forward a (rule 1, &lt;b&gt;&amp;\\\\'\\x1b\\xff\\uFFFE)"));
}

TEST_F(PortsSvg, CutsATooltipThatNobodyReads) {
    std::string services;
    for (int i = 0; i < 150; ++i) {
        services += Section("s" + std::to_string(i), "7000/tcp");
    }
    WriteFile(kSystem + "many.sc", services);
    EXPECT_THAT(Tooltips(Svg({"--declared"})), Contains(EndsWith("\nand 50 more")));
}

TEST_F(PortsSvg, IsSelfContainedInLightAndDarkForEverybody) {
    const std::string svg = Svg();
    EXPECT_THAT(svg, StartsWith("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 "));
    EXPECT_THAT(svg, HasSubstr(" role=\"graphics-document document\" "
                               "aria-labelledby=\"title desc\">\n"
                               "<title id=\"title\">Ports</title>\n<desc id=\"desc\">"));
    EXPECT_THAT(svg, HasSubstr("@media (prefers-color-scheme: dark)"));
    EXPECT_THAT(svg, testing::AllOf(Not(HasSubstr("<script")), Not(HasSubstr("href"))));
    EXPECT_THAT(svg, HasSubstr(">in conflict: a border</text>"));
    EXPECT_THAT(Svg({"--no-legend"}), Not(HasSubstr(">in conflict: a border</text>")));
}

TEST_F(PortsSvg, DistinguishesKindsWithoutColours) {
    WriteFile(kSystem + "a.sc", Section("a", "30720:30735/tcp"));
    const HeldPort first(Family::kV4, Protocol::kTcp, 30752);
    const HeldPort second(Family::kV4, Protocol::kTcp, 32767);
    const std::string svg = Svg();
    EXPECT_THAT(svg, testing::ContainsRegex(
                         "x=\"64\" y=\"156\" width=\"8\" height=\"8\">[^\n]*</rect>\n"
                         "<rect class=\"socket\" x=\"80\" y=\"156\" width=\"8\"[^\n]*</rect>\n"
                         "<path class=\"dots\" d=\"M84 160h4\"/>\n"
                         "<rect class=\"socket\" x=\"1080\" y=\"156\"[^\n]*</rect>\n"
                         "<path class=\"dots\" d=\"M1084 160h4\"/>\n<text"));
    EXPECT_THAT(svg, testing::ContainsRegex("<rect class=\"socket\"[^\n]*/>\n<path class=\"dots\""
                                            "[^\n]*/>\n<text[^\n]*>held: a dot</text>"));
    EXPECT_THAT(svg, testing::ContainsRegex("\\.conflict \\{[^}]* stroke: var\\(--ink\\);"));
}

// ---- The file

TEST_F(PortsSvg, WritesAFileBesidesTheTable) {
    const TemporaryFolder folder;
    const std::string path = folder / "ports.svg";
    const ProgramResult result = ServiceTool({"ports", "--svg", path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, ServiceTool({"ports"}).out);
    EXPECT_EQ(ReadFile(path), Svg());
    const std::string out = ServiceTool({"ports", "--json", "--svg", path}).out;
    EXPECT_EQ(out, ServiceTool({"ports", "--json"}).out);
}

TEST_F(PortsSvg, ReplacesAFileAndKeepsItsModeAndItsLinks) {
    const TemporaryFolder folder;
    const std::string path = folder / "ports.svg";
    const std::string link = folder / "link.svg";
    WriteFile(path, "old");
    chmod(path.c_str(), 0640);
    std::filesystem::create_symlink("ports.svg", link);
    EXPECT_EQ(ServiceTool({"ports", "--svg", link}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(ReadFile(path), Svg());
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(PortsSvg, GivesANewFileTheModeOfAnyNewFile) {
    const TemporaryFolder folder;
    const std::string path = folder / "ports.svg";
    EXPECT_EQ(
        RunProgram({"sh", "-c", "umask 027; exec '" SERVICETOOL "' ports --svg " + path}).status,
        0);
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(PortsSvg, LeavesTheOldFileWholeWhereItCannotWriteANewOne) {
    const TemporaryFolder folder;
    const std::string path = folder / "ports.svg";
    WriteFile(path, "old");
    const ProgramResult result = RunProgram(
        {"bash", "-c",
         "trap '' XFSZ; ulimit -f 1; exec '" SERVICETOOL "' ports --svg " + path + " >/dev/null"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err,
              path + ": error: cannot be written and is unchanged: file too large [unwritable]\n");
    EXPECT_EQ(ReadFile(path), "old");
    EXPECT_THAT(folder.Entries(), ElementsAre("ports.svg"));
}

TEST_F(PortsSvg, ReportsWhyAFileCannotBeWritten) {
    const TemporaryFolder folder;
    std::filesystem::create_symlink("loop", folder / "loop");
    std::filesystem::create_symlink("nothing", folder / "dangling");
    mkfifo((folder / "pipe").c_str(), 0600);
    WriteFile(folder / "file", "");
    const std::vector<std::string> entries = folder.Entries();
    for (const auto &[path, problem] :
         {std::pair(folder / "no/ports.svg", "no such file or directory"),
          std::pair(folder / "file/ports.svg", "not a directory"),
          std::pair(folder / "loop", "too many levels of symbolic links"),
          std::pair(folder / "dangling", "dangling symbolic link"),
          std::pair(folder / "pipe", "no such device or address"),
          std::pair(folder.Path(), "is a directory"),
          std::pair(std::string("/dev/full"), "no space left on device")}) {
        const ProgramResult result = ServiceTool({"ports", "--no-legend", "--svg", path});
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(result.err, path + ": error: cannot be written: " + problem + " [unwritable]\n");
        EXPECT_EQ(result.out, ServiceTool({"ports", "--no-legend"}).out);
    }
    EXPECT_EQ(folder.Entries(), entries);
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "loop"));
}

TEST_F(PortsSvg, LeavesAFileWholeWhoseOwnerItCannotKeep) {
    const TemporaryFolder folder;
    const std::string path = folder / "ports.svg";
    WriteFile(path, "old");
    chmod(path.c_str(), 0666);
    if (chown(path.c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    const ProgramResult result = RunProgram({"setpriv", "--bounding-set=-all", "--inh-caps=-all",
                                             SERVICETOOL, "ports", "--declared", "--svg", path});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, path +
                              ": error: cannot be written and is unchanged: its owner cannot be "
                              "preserved: operation not permitted [unwritable]\n");
    EXPECT_EQ(ReadFile(path), "old");
    EXPECT_THAT(folder.Entries(), ElementsAre("ports.svg"));
}

TEST_F(PortsSvg, WritesFilesWithNamesAsLongAsNamesCanBe) {
    const TemporaryFolder folder;
    const std::string path = folder / std::string(255, 's');
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(ServiceTool({"ports", "--svg", path}).status, 0);
        EXPECT_EQ(ReadFile(path), Svg());
    }
}

TEST_F(PortsSvg, WaitsForASlowReaderOfAPipe) {
    const TemporaryFolder folder;
    std::string services;
    for (int port = 20000; port < 23000; ++port) {
        services += Section("s" + std::to_string(port), std::to_string(port) + "/tcp");
    }
    WriteFile(kSystem + "many.sc", services);
    const std::string pipe = folder / "pipe";
    const std::string copy = folder / "copy";
    mkfifo(pipe.c_str(), 0600);
    const ProgramResult result =
        RunProgram({"sh", "-c",
                    "{ sleep 0.3; cat; } <" + pipe + " >" + copy + " & exec 3>" + pipe +
                        "; '" SERVICETOOL "' ports --svg " + pipe +
                        " >/dev/null; status=$?; exec 3>&-; wait; exit $status"});
    EXPECT_EQ(result.status, 0);
    EXPECT_GT(ReadFile(copy).size(), 65536U) << "more than a pipe holds";
    EXPECT_EQ(ReadFile(copy), Svg());
}

TEST_F(PortsSvg, KnowsStandardOutputByOtherNames) {
    const TemporaryFolder folder;
    const std::string path = folder / "ports.svg";
    for (const std::string &name : {std::string("/dev/stdout"), path}) {
        const ProgramResult result =
            RunProgram({"sh", "-c", "exec '" SERVICETOOL "' ports --svg " + name + " >" + path});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(ReadFile(path), Svg());
    }
    const ProgramResult both = ServiceTool({"ports", "--map", "--svg", "/dev/stdout"});
    EXPECT_EQ(both.status, 2);
    EXPECT_THAT(both.err, HasSubstr("--svg /dev/stdout and --map exclude each other"));
}

TEST_F(PortsSvg, HasStandardOutputForItself) {
    for (const auto &[other, message] :
         {std::pair("--json", "--svg - and --json exclude each other"),
          std::pair("--map", "--svg - and --map exclude each other")}) {
        const ProgramResult result = ServiceTool({"ports", "--svg", "-", other});
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.out + result.err, HasSubstr(message));
    }
    const ProgramResult empty = ServiceTool({"ports", "--svg", ""});
    EXPECT_EQ(empty.status, 2);
    EXPECT_THAT(empty.err, HasSubstr("--svg needs the name of a file [usage]"));
}

}  // namespace
}  // namespace tavo::test
