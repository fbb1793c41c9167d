// The text catalogue: a German catalogue compiled at test time reaches the
// user through the real tasket-share, and texts without a translation (or
// the empty text, under which gettext keeps its header) stay as written.
#include "platform/text_catalogue.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

using tasket::platform::catalogueText;
using tasket::testing::ScopedEnv;
using tasket::testing::TempDir;

namespace {

std::string quoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

struct ProgramRun {
    int status;
    std::string out;
    std::string err;
};

ProgramRun run(const std::string& command, const TempDir& dir) {
    const std::string err = (dir / "stderr.txt").string();
    FILE* pipe = ::popen((command + " 2> " + quoted(err)).c_str(), "r");
    std::string out;
    char buffer[4096];
    std::size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        out.append(buffer, n);
    const int status = ::pclose(pipe);
    std::ostringstream errText;
    errText << std::ifstream(err).rdbuf();
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out, errText.str()};
}

class TextCatalogueTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const auto messages = dir / "locale" / "de" / "LC_MESSAGES";
        std::filesystem::create_directories(messages);
        const ProgramRun compiled =
            run(std::string(MSGFMT) + " --check -o " + quoted((messages / "tasket.mo").string()) +
                    " " + quoted(GERMAN_PO),
                dir);
        ASSERT_EQ(compiled.status, 0) << compiled.err;
    }

    /// tasket-share in German, headless, with private XDG folders.
    ProgramRun share(const std::string& arguments) {
        return run("cd " + quoted(dir.path().string()) +
                       " && env -u DISPLAY -u WAYLAND_DISPLAY -u LC_MESSAGES -u LANG"
                       " LC_ALL=C.UTF-8 LANGUAGE=de TASKET_LOCALEDIR=" +
                       quoted((dir / "locale").string()) +
                       " XDG_DATA_HOME=" + quoted((dir / "data").string()) +
                       " XDG_CONFIG_HOME=" + quoted((dir / "config").string()) + " " +
                       TASKET_SHARE_BINARY + " " + arguments + " < /dev/null",
                   dir);
    }

    TempDir dir;
};

} // namespace

TEST_F(TextCatalogueTest, TheShareProgramSpeaksTheUsersLanguage) {
    std::ofstream(dir / "notes.txt") << "notes";
    // The first share makes the list the store lacks; the file is left out
    // for want of the paid tier, and the notice says so.
    const ProgramRun saved = share("--yes --text Milch notes.txt");
    ASSERT_EQ(saved.status, 0) << saved.err;
    EXPECT_NE(saved.out.find("list:  Neue Kategorie"), std::string::npos) << saved.out;
    EXPECT_NE(saved.err.find("Tasket Premium wird benötigt. Bitte kaufe Tasket Premium, um "
                             "diese Funktion zu nutzen."),
              std::string::npos)
        << saved.err;
    EXPECT_EQ(saved.err.find("Tasket Premium is Required"), std::string::npos) << saved.err;
}

TEST_F(TextCatalogueTest, TextsWithoutATranslationStayAsWritten) {
    const ScopedEnv localeDir("TASKET_LOCALEDIR", dir / "locale");
    const ScopedEnv language("LANGUAGE", "de");
    const ScopedEnv locale("LC_ALL", "C.UTF-8");
    tasket::platform::startTextCatalogue();
    EXPECT_EQ(catalogueText("New Task").translated(), "Neue Aufgabe");
    EXPECT_EQ(tasket::platform::translated("New Category"), "Neue Kategorie");
    EXPECT_EQ(catalogueText("Reminder").translated(), "Reminder");
    EXPECT_EQ(tasket::platform::translated("tray"), "tray");
    EXPECT_EQ(tasket::platform::translated(""), "");
    std::setlocale(LC_ALL, "C");
}
