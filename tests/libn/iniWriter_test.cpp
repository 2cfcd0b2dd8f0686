#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "iniWriterProbe.h"
#include "libn/Ini.h"
#include "support/slot.h"
#include "support/tempFolder.h"

namespace {

using namespace iniWriting;
using libn::Ini;
using libn::IniBaseWriter;
using libn::IniSectionWriter;

// What writeSection makes of a file of these bytes.
std::string rewrittenBytes(const std::string& before, const std::string& section,
                           const std::string& body) {
    const TempFolder folder;
    Ini ini(folder.write("f", before));
    EXPECT_TRUE(ini.writeSection(section, std::string(body)));
    return folder.read("f");
}

// The same for a text.
std::string rewritten(const std::string& before, const std::string& section,
                      const std::string& body) {
    const std::string after = rewrittenBytes(bytes(before), section, body);
    std::string text = after;
    for (std::size_t at = 0; (at = text.find(platform::textLineEnd, at)) != std::string::npos; ++at)
        text.replace(at, platform::textLineEnd.size(), "\n");
    EXPECT_EQ(bytes(text), after);
    return text;
}

// What a writer makes of a text, "(false)" where it says so.
std::string runOn(const std::string& before, const std::string& section, bool append,
                  std::optional<std::string> body, int arg = 0) {
    const TempFolder folder;
    IniSectionWriter writer(folder.write("f", bytes(before)), section, append, std::move(body));
    if (!writer.run(arg))
        return "(false)" + folder.read("f");
    return folder.read("f");
}

using Calls = std::vector<std::string>;

} // namespace

// ---- the interface ----

TEST(IniWriterInterface, VirtualOperationsStandInTheirOrder) {
    EXPECT_EQ(slotOf(&IniBaseWriter::onSectionFound), 0);
    EXPECT_EQ(slotOf(&IniBaseWriter::onSectionLine), 1);
    EXPECT_EQ(slotOf(&IniBaseWriter::run), 2);
    EXPECT_EQ(slotOf(&IniSectionWriter::onSectionFound), 0);
    EXPECT_EQ(slotOf(&IniSectionWriter::onSectionLine), 1);
    EXPECT_EQ(slotOf(&IniSectionWriter::run), 2);
    using Get = void (Ini::*)(const std::string&, std::map<std::string, std::string>&);
    EXPECT_EQ(slotOf(static_cast<Get>(&Ini::getSection)), 0);
    EXPECT_EQ(slotOf(&Ini::writeSection), 1);
}

TEST(IniWriterInterface, HasNoVirtualDestructor) {
    EXPECT_TRUE(std::is_abstract_v<IniBaseWriter>);
    EXPECT_FALSE(std::has_virtual_destructor_v<IniBaseWriter>);
    EXPECT_FALSE(std::has_virtual_destructor_v<IniSectionWriter>);
}

TEST(IniWriterInterface, NameOfTheSectionIsFolded) {
    Probe probe("The File", "The SECTION ");
    EXPECT_EQ(probe.section, "the section ");
    EXPECT_EQ(probe.fileName, "The File");
    EXPECT_EQ(probe.out, "");
}

// ---- writeSection ----

TEST(WriteSection, ReplacesTheSectionAndNothingElse) {
    EXPECT_EQ(rewritten("; head\na=1\n\n[one]\nk=1\n[two]\nk=2\n; inside\nl=3\n[three]\n k = 3 \n",
                        "two", "new=x\nother=y"),
              "; head\na=1\n\n[one]\nk=1\n[two]\nnew=x\nother=y\n[three]\n k = 3 \n");
}

TEST(WriteSection, DeletesCommentsInsideAndKeepsThemElsewhere) {
    EXPECT_EQ(rewritten("[a]\n; of a\nk=1\n\n# too\n[b]\n; of b\n\n# too\nk=2\n", "a", "k=9"),
              "[a]\nk=9\n[b]\n; of b\n\n# too\nk=2\n");
}

TEST(WriteSection, HeaderStaysAsItStands) {
    EXPECT_EQ(rewritten("  [ The Section ] ; note\nk=1\n", "the section", "k=2"),
              "  [ The Section ] ; note\nk=2\n");
    EXPECT_EQ(rewritten("[S]\nk=1\n", "s", "k=2"), "[S]\nk=2\n");
    EXPECT_EQ(rewritten("[s]\nk=1\n", "S", "k=2"), "[s]\nk=2\n");
}

TEST(WriteSection, NewSectionComesBehindAnEmptyLineInLowerCase) {
    EXPECT_EQ(rewritten("[One]\nk=1\n", "Two", "K=V\nL=W"), "[One]\nk=1\n\n[two]\nK=V\nL=W\n");
    EXPECT_EQ(rewritten("[One]\nk=1", "Two", "K=V"), "[One]\nk=1\n\n[two]\nK=V\n");
    EXPECT_EQ(rewritten("", "Two", "K=V"), "\n[two]\nK=V\n");
}

TEST(WriteSection, MissingFileIsMadeOfTheSection) {
    const TempFolder folder;
    Ini ini(folder.name("new.ini"));
    EXPECT_TRUE(ini.writeSection("Section", "Key=Value"));
    EXPECT_EQ(folder.read("new.ini"), bytes("[section]\nKey=Value\n"));
    EXPECT_EQ(Ini(folder.name("new.ini")).getValue("section", "key"), "Value");
}

TEST(WriteSection, ObjectKeepsWhatItParsed) {
    const TempFolder folder;
    Ini ini(folder.write("f", "[s]\nk=1\n"));
    std::string body = "k=2";
    EXPECT_TRUE(ini.writeSection("s", std::move(body)));
    EXPECT_EQ(ini.getValue("s", "k"), "1");
    EXPECT_EQ(Ini(folder.name("f")).getValue("s", "k"), "2");
}

TEST(WriteSection, EmptyBodyLeavesAHeaderAndAnEmptyLine) {
    EXPECT_EQ(rewritten("[s]\nk=1\n[t]\n", "s", ""), "[s]\n\n[t]\n");
}

TEST(WriteSection, NameWithBlanksIsAnotherOne) {
    EXPECT_EQ(rewritten("[s]\nk=1\n", " s ", "k=2"), "[s]\nk=1\n\n[ s ]\nk=2\n");
}

TEST(WriteSection, FolderIsNoFile) {
    const TempFolder folder;
    Ini ini(folder.path().string());
    EXPECT_FALSE(ini.writeSection("s", "k=1"));
}

TEST(WriteSection, TwiceIsAsOnce) {
    const TempFolder folder;
    Ini ini(folder.write("f", bytes("[a]\nx=1\n[s]\nk=1\n")));
    EXPECT_TRUE(ini.writeSection("s", "k=2"));
    EXPECT_TRUE(ini.writeSection("s", "k=2"));
    EXPECT_EQ(folder.read("f"), bytes("[a]\nx=1\n[s]\nk=2\n"));
}

// ---- lines ----

TEST(IniWriterPass, EverySectionOfTheNameIsReplaced) {
    EXPECT_EQ(rewritten("[s]\nk=1\n[t]\nm=1\n[S]\nk=2\n", "s", "new=1"),
              "[s]\nnew=1\n[t]\nm=1\n[S]\nnew=1\n");
}

TEST(IniWriterPass, HeaderWithoutABracketIsCopiedAndEndsNothing) {
    EXPECT_EQ(rewritten("[s]\nk=1\n[broken\nk=2\n[t]\nm=1\n", "s", "new=1"),
              "[s]\nnew=1\n[broken\n[t]\nm=1\n");
    EXPECT_EQ(rewritten("[t]\n[s\nk=1\n", "t", "new=1"), "[t]\nnew=1\n[s\n");
}

TEST(IniWriterPass, EmptyHeaderEndsTheSection) {
    EXPECT_EQ(rewritten("[s]\nk=1\n[]\nk=2\n", "s", "new=1"), "[s]\nnew=1\n[]\nk=2\n");
}

TEST(IniWriterPass, LinesThatAreNoKeysAreCopiedOrGoLikeKeys) {
    EXPECT_EQ(rewritten("no key\n=x\n[s]\nno key\n=x\n[t]\nno key\n", "s", "n=1"),
              "no key\n=x\n[s]\nn=1\n[t]\nno key\n");
}

TEST(IniWriterPass, CommentThatEndsTheFileIsLost) {
    EXPECT_EQ(rewritten("[s]\nk=1\n[t]\nm=1\n; end", "s", "n=1"), "[s]\nn=1\n[t]\nm=1\n");
    EXPECT_EQ(rewritten("[s]\nk=1\n[t]\nm=1\n   ", "s", "n=1"), "[s]\nn=1\n[t]\nm=1\n");
    EXPECT_EQ(rewritten("[s]\nk=1\n[t]\n; end\n", "s", "n=1"), "[s]\nn=1\n[t]\n; end\n");
    EXPECT_EQ(rewritten("# alone", "s", "n=1"), "\n[s]\nn=1\n");
}

TEST(IniWriterPass, OtherLastLinesGetALineFeed) {
    EXPECT_EQ(rewritten("[s]\nk=1\n[t]\nm=1", "s", "n=1"), "[s]\nn=1\n[t]\nm=1\n");
    EXPECT_EQ(rewritten("[s]\nk=1\n[t]", "s", "n=1"), "[s]\nn=1\n[t]\n");
    EXPECT_EQ(rewritten("[s]\nk=1\n[t", "s", "n=1"), "[s]\nn=1\n[t\n");
    EXPECT_EQ(rewritten("[s]\nk=1", "s", "n=1"), "[s]\nn=1\n");
    EXPECT_EQ(rewritten("[s]", "s", "n=1"), "[s]\nn=1\n");
}

TEST(IniWriterPass, RawLinesAreCopiedWithBlanksAndZeroes) {
    const std::string line("  \tk \0 = v\t \r \n", 15);
    EXPECT_EQ(rewritten(line + "[s]\n", "s", "n=1"), line + "[s]\nn=1\n");
}

TEST(IniWriterPass, LongLinesAreCopiedWhole) {
    const std::string text =
        "a=" + std::string(100'000, 'x') + "\n; " + std::string(40'000, 'y') + "\n";
    EXPECT_EQ(rewritten(text + "[s]\nk=1\n", "s", "n=1"), text + "[s]\nn=1\n");
}

TEST(IniWriterPass, LineEndsOfTheOtherSystem) {
    if (platform::textLineEnd == "\n") {
        EXPECT_EQ(rewrittenBytes("a=1\r\n[s]\r\nk=1\r\n[t]\r\n\r\n", "s", "n=1"),
                  "a=1\r\n[s]\r\nn=1\n[t]\r\n\r\n");
    } else {
        EXPECT_EQ(rewrittenBytes("a=1\n[s]\nk=1\n[t]\n", "s", "n=1"),
                  "a=1\r\n[s]\r\nn=1\r\n[t]\r\n");
        EXPECT_EQ(rewrittenBytes("a=1\r\r\nb=\r2\r\n[s]\r\n", "s", "n=1\r"),
                  "a=1\r\r\nb=\r2\r\n[s]\r\nn=1\r\r\n");
        EXPECT_EQ(rewrittenBytes("a=1\r", "s", "n=1"), "a=1\r\r\n\r\n[s]\r\nn=1\r\n");
    }
}

TEST(IniWriterPass, MarkOfTheTextModeEndsTheFile) {
    const std::string before = "a=1\n[s]\nk=1\n\x1A\n[t]\nm=1\n";
    EXPECT_EQ(rewritten(before, "s", "n=1"),
              platform::textEndMark == 0x1A ? "a=1\n[s]\nn=1\n" : "a=1\n[s]\nn=1\n[t]\nm=1\n");
    EXPECT_EQ(rewritten("a=1\n; x\x1A", "s", "n=1"), "a=1\n\n[s]\nn=1\n");
}

// ---- the section writer ----

TEST(IniSectionWriter, WithoutABodyTheSectionGoesWithItsHeader) {
    EXPECT_EQ(runOn("a=1\n[s]\nk=1\n; x\n[t]\nm=1\n", "s", true, std::nullopt),
              bytes("a=1\n[t]\nm=1\n"));
    EXPECT_EQ(runOn("[s]\nk=1\n", "s", false, std::nullopt), "");
}

TEST(IniSectionWriter, TakingAwayWhatIsNotThereAddsAnEmptyLine) {
    EXPECT_EQ(runOn("a=1\n", "s", true, std::nullopt), bytes("a=1\n\n"));
    EXPECT_EQ(runOn("a=1\n", "s", false, std::nullopt), bytes("a=1\n\n"));
}

TEST(IniSectionWriter, OnlyAMissingFileAsksWhetherToAppend) {
    EXPECT_EQ(runOn("a=1\n", "s", false, "k=1"), bytes("a=1\n\n[s]\nk=1\n"));
    const TempFolder folder;
    IniSectionWriter never(folder.name("none"), "s", false, "k=1");
    EXPECT_FALSE(never.run(0));
    EXPECT_FALSE(std::filesystem::exists(folder.name("none")));
    IniSectionWriter empty(folder.name("empty"), "s", true, std::nullopt);
    EXPECT_TRUE(empty.run(0));
    EXPECT_TRUE(std::filesystem::exists(folder.name("empty")));
    EXPECT_EQ(folder.read("empty"), "");
}

TEST(IniSectionWriter, ArgumentMakesAFileWithoutTheSectionGood) {
    EXPECT_EQ(runOn("a=1\n; end", "s", true, "k=1", 1), bytes("a=1\n"));
    EXPECT_EQ(runOn("a=1\n", "s", true, "k=1", -1), bytes("a=1\n"));
    EXPECT_EQ(runOn("[s]\na=1\n", "s", true, "k=1", 1), bytes("[s]\nk=1\n"));
    const TempFolder folder;
    IniSectionWriter missing(folder.name("none"), "s", true, "k=1");
    EXPECT_TRUE(missing.run(1));
    EXPECT_EQ(folder.read("none"), bytes("[s]\nk=1\n"));
}

TEST(IniSectionWriter, RunsAsOftenAsIsAsked) {
    const TempFolder folder;
    IniSectionWriter writer(folder.write("f", bytes("a=1\n")), "s", true, "k=1");
    EXPECT_TRUE(writer.run(0));
    EXPECT_TRUE(writer.run(0));
    EXPECT_EQ(folder.read("f"), bytes("a=1\n\n[s]\nk=1\n"));
}

// ---- the base ----

TEST(IniBaseWriter, LinesOfTheSectionAreShownAndMayChange) {
    const TempFolder folder;
    Probe probe(folder.write("f", bytes("a=0\n[s]\nk=1\n; c\nl=2\nno key\n[t]\nk=3\n[s]\nk=4\n")),
                "S");
    probe.change = [](std::string& line) {
        if (line == "l=2")
            line.clear();
        else
            line += "!";
    };
    EXPECT_TRUE(probe.run(7));
    EXPECT_EQ(probe.calls, (Calls{"found [s]", "line k=1 7", "line l=2 7", "line no key 7",
                                  "found [s]", "line k=4 7"}));
    EXPECT_EQ(folder.read("f"), bytes("a=0\n<[s]>\nk=1!\n; c\nno key!\n[t]\nk=3\n<[s]>\nk=4!\n"));
    EXPECT_EQ(probe.out, "");
}

TEST(IniBaseWriter, SkippedLinesAreNotShown) {
    const TempFolder folder;
    Probe probe(folder.write("f", bytes("[s] x\nk=1\n; c\n\n[broken\nl=2\n[t]\nk=3\n")), "s");
    probe.skips = true;
    EXPECT_TRUE(probe.run(0));
    EXPECT_EQ(probe.calls, Calls{"found [s] x"});
    EXPECT_EQ(folder.read("f"), bytes("<[s] x>\n[broken\n[t]\nk=3\n"));
}

TEST(IniBaseWriter, PassTellsWhatItFound) {
    const TempFolder folder;
    const std::string path = folder.write("f", bytes("a=1\n[s]\nk=1\n"));
    EXPECT_EQ(Probe(path, "s").pass(0), 0);
    EXPECT_EQ(Probe(path, "t").pass(0), 2);
    EXPECT_EQ(Probe(path, "t").pass(1), 0);
    EXPECT_EQ(Probe(path, "t").pass(-1), 0);
    EXPECT_EQ(Probe(folder.name("none"), "s").pass(0), 1);
    EXPECT_EQ(Probe(folder.name("none"), "s").pass(1), 1);
}

TEST(IniBaseWriter, FileWithoutTheSectionIsLeftAlone) {
    const TempFolder folder;
    Probe probe(folder.write("f", "a=1\n; end"), "s");
    EXPECT_FALSE(probe.run(0));
    EXPECT_EQ(folder.read("f"), "a=1\n; end");
    EXPECT_TRUE(probe.run(1));
    EXPECT_EQ(folder.read("f"), bytes("a=1\n")) << "nothing of the first run";
    Probe none(folder.name("none"), "s");
    EXPECT_FALSE(none.run(0));
    EXPECT_FALSE(none.run(1));
    EXPECT_FALSE(std::filesystem::exists(folder.name("none")));
}
