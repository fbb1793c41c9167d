// The text catalogue: a German catalogue compiled at test time reaches the
// user through the real tasket-share, and texts without a translation (or
// the empty text, under which gettext keeps its header) stay as written.
#include "platform/text_catalogue.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <fstream>

using tasket::testing::runProgram;
using tasket::testing::ScopedEnv;

TEST(TextCatalogue, TheShareProgramAndTheLibrarySpeakTheUsersLanguage) {
    const tasket::testing::TempDir dir;
    const auto locale = dir / "locale";
    std::filesystem::create_directories(locale / "de" / "LC_MESSAGES");
    const auto compiled = runProgram(
        MSGFMT, {"--check", "-o", (locale / "de/LC_MESSAGES/tasket.mo").string(), GERMAN_PO},
        {.home = dir.path()});
    ASSERT_EQ(compiled.status, 0) << compiled.err;

    // The first share makes the list the store lacks; the file is left out
    // for want of the paid tier, and the notice says so.
    std::ofstream(dir / "notes.txt") << "notes";
    const auto saved = runProgram(
        TASKET_SHARE_BINARY, {"--yes", "--text", "Milch", "notes.txt"},
        {.home = dir.path(),
         .environment = {"LC_ALL=C.UTF-8", "LANGUAGE=de", "TASKET_LOCALEDIR=" + locale.string()}});
    ASSERT_EQ(saved.status, 0) << saved.err;
    EXPECT_THAT(saved.out, ::testing::HasSubstr("list:  Neue Kategorie"));
    EXPECT_THAT(saved.err,
                ::testing::HasSubstr("Tasket Premium wird benötigt. Bitte kaufe Tasket Premium, um "
                                     "diese Funktion zu nutzen."));
    EXPECT_EQ(saved.err.find("Tasket Premium is Required"), std::string::npos) << saved.err;

    const ScopedEnv localeDir("TASKET_LOCALEDIR", locale);
    const ScopedEnv language("LANGUAGE", "de");
    const ScopedEnv all("LC_ALL", "C.UTF-8");
    tasket::platform::startTextCatalogue();
    EXPECT_EQ(tasket::platform::catalogueText("New Task").translated(), "Neue Aufgabe");
    EXPECT_EQ(tasket::platform::translated("New Category"), "Neue Kategorie");
    for (const char* untranslated : {"Reminder", "tray", ""})
        EXPECT_EQ(tasket::platform::translated(untranslated), untranslated);
    std::setlocale(LC_ALL, "C");
}
