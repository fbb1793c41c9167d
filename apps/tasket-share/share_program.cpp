#include "tasket-share/share_program.h"

#include "cloud/persistent_history_processor.h"
#include "common/exit_code.h"
#include "common/task_report.h"
#include "platform/extension/command_line_share.h"
#include "platform/json_writer.h"
#include "platform/main_queue.h"
#include "platform/preferences/file_preferences_suite.h"
#include "rules/texts.h"
#include "services/data_manager.h"
#include "settings/settings_keys.h"
#include "share/headless_share.h"
#include "share/share_view_controller.h"
#include "share/shared_task.h"
#include "store/lookup.h"
#include "tasket-share/share_lock.h"
#include "tasket-share/share_options.h"
#include "tasket-share/terminal_prompt.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <optional>
#include <vector>

namespace tasket::apps {
namespace {

using share::ShareViewController;

void report(std::ostream& err, std::string_view message) {
    err << fmt::format("tasket-share: {}\n", message);
}

// One run of the program over the loaded controller.
class ShareSession {
  public:
    ShareSession(const ShareOptions& options, ShareProgramEnvironment& environment,
                 std::unique_ptr<ShareForm> form, std::istream* promptInput,
                 std::shared_ptr<services::AuthenticationManager> lock)
        : m_options(options), m_environment(environment), m_form(std::move(form)),
          m_promptInput(promptInput), m_locked(lock->isLocked()), m_lock(std::move(lock)) {}

    int run(platform::CommandLineShare share, std::string text) {
        auto localDataManager = store::LocalDataManager::make();
        // Without a form nothing shows the lists live; watching the store
        // for other processes' saves would only slow a headless share.
        localDataManager->setWatchesOtherProcesses(m_form != nullptr);
        if (m_form)
            cloud::installHistoryProcessing(
                *localDataManager, "tasket-share", [&err = m_environment.err](const auto& error) {
                    report(err, fmt::format("the lists may not show other programs' changes: {}",
                                            error.message));
                });
        auto customizationManager = std::make_shared<settings::CustomizationManager>(
            platform::FilePreferencesSuite::inConfigHome(
                std::string(settings::keys::kAppGroupSuite)),
            platform::FilePreferencesSuite::inConfigHome(
                std::string(settings::keys::kStandardSuite)));
        // Completing the request ends the program once the save has committed.
        auto extensionContext = std::make_shared<platform::ExtensionContext>(
            std::move(share.inputItems), [this](std::vector<platform::ExtensionItem>) {
                m_controller->pendingSaves()->whenIdle([this] { quit(); });
            });
        m_controller = std::make_unique<ShareViewController>(extensionContext, localDataManager,
                                                             customizationManager);
        m_controller->setServices({
            .dataManager = services::DataManager::open(localDataManager, customizationManager),
            .authenticationManager = m_lock,
            .cloudDataManager = nullptr, // the notifier daemon syncs what is saved here
        });
        m_controller->shareManager()->setText(std::move(text));
        m_controller->loadForm(m_environment.imageConverter, [this](platform::Result<void> loaded) {
            didLoad(std::move(loaded));
        });
        if (m_form)
            m_form->exec();
        else
            platform::MainQueue::shared().run();
        return finish();
    }

  private:
    void quit() {
        if (m_form)
            m_form->quit();
        else
            platform::MainQueue::shared().quit();
    }

    void fail(const platform::Error& error) {
        report(m_environment.err, error.message);
        if (m_status == kExitSuccess)
            m_status = exitCodeFor(error.code);
    }

    void didLoad(platform::Result<void> loaded) {
        if (!loaded) {
            fail(loaded.error());
            quit();
            return;
        }
        for (const auto& refused : m_controller->input().refused)
            report(m_environment.err, refused.message);
        if (m_form) {
            m_controller->followStoredFocus();
            m_form->present(*m_controller);
            return;
        }
        if (m_locked && !m_options.yes) {
            report(m_environment.err, kLockedPromptMessage);
            m_status = kExitLocked;
            m_controller->toolbar().cancel();
            return;
        }
        if (m_options.list) {
            auto found = store::findList(
                m_controller->picker().localDataFetchManager()->categories().value(),
                *m_controller->localDataManager()->viewContext(), *m_options.list);
            const bool missing = !found && found.error().code == platform::Errc::notFound;
            if (missing && m_options.createList) {
                if (auto created = m_controller->picker().createCategory(*m_options.list); !created)
                    return cancelWith(created.error());
            } else if (!found) {
                const platform::Error error =
                    m_locked ? withoutLists(found.error(), *m_options.list) : found.error();
                return cancelWith(
                    missing ? platform::Error{error.code,
                                              error.message + "; add --create-list to make it"}
                            : error);
            } else {
                m_controller->picker().select(*found);
            }
        }
        if (!m_options.yes && askOnTerminal(*m_controller, *m_promptInput, m_environment.err) ==
                                  PromptOutcome::cancel) {
            report(m_environment.err, share::kCancelledMessage);
            m_status = kExitFailure;
            m_controller->toolbar().cancel();
            return;
        }
        auto done = share::doneWithoutAsking(
            *m_controller, [this](std::string_view notice) { report(m_environment.err, notice); });
        if (!done)
            fail(done.error());
    }

    void cancelWith(const platform::Error& error) {
        fail(error);
        m_controller->toolbar().cancel();
    }

    int finish() {
        if (m_form) {
            if (auto outcome = m_form->outcome(); !outcome)
                fail(outcome.error());
            // The form's Cancel (a screenshot run cancels on purpose).
            if (m_status == kExitSuccess && m_controller->pendingSaves()->outcomes().empty() &&
                !m_options.screenshot) {
                report(m_environment.err, share::kCancelledMessage);
                m_status = kExitFailure;
            }
        }
        for (const auto& saved : share::savedTasks(*m_controller)) {
            if (!saved) {
                fail(saved.error());
                continue;
            }
            const TaskReport task =
                m_locked ? withoutList(reportTask(**saved)) : reportTask(**saved);
            if (m_options.json) {
                platform::JsonWriter json;
                json.beginObject();
                writeTaskMembers(json, task);
                json.key("isAddingAttachmentsWithoutPremium")
                    .boolean(m_controller->input().isAddingAttachmentsWithoutPremium);
                json.endObject();
                m_environment.out << json.finish().value();
            } else {
                m_environment.out << "Saved " << describeTask(task);
            }
        }
        m_environment.out.flush();
        return m_status;
    }

    const ShareOptions& m_options;
    ShareProgramEnvironment& m_environment;
    std::unique_ptr<ShareForm> m_form;
    std::istream* m_promptInput;
    std::unique_ptr<ShareViewController> m_controller;
    bool m_locked;
    std::shared_ptr<services::AuthenticationManager> m_lock;
    int m_status = kExitSuccess;
};

} // namespace

bool hasDisplay() {
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    const char* x11 = std::getenv("DISPLAY");
    const char* platform = std::getenv("QT_QPA_PLATFORM");
    return (wayland && *wayland) || (x11 && *x11) ||
           (platform && std::string_view(platform).starts_with("offscreen"));
}

int runShareProgram(std::span<const std::string> arguments, ShareProgramEnvironment environment) {
    platform::MainQueue::shared().claimCurrentThread();
    auto parsed = parseShareOptions(arguments, environment.out, environment.err);
    if (!parsed.options)
        return parsed.exitStatus;
    const ShareOptions& options = *parsed.options;
    // Before anything is read: the other build reads standard input itself.
    if (environment.handOver)
        if (const auto status = environment.handOver(options))
            return *status;

    if (options.readsStandardInput && environment.standardInputIsTerminal) {
        report(environment.err,
               "refusing to read picture bytes from a terminal: pipe them in, as in "
               "\"tasket-share --image - < picture.png\"");
        return kExitUsage;
    }

    platform::CommandLineShareOptions readOptions;
    readOptions.standardInput = &environment.in;
    platform::CommandLineShare share = platform::readCommandLineShare(options.groups, readOptions);
    for (const auto& skipped : share.skipped)
        report(environment.err, skipped.error.message);

    std::string text = share::initialText(options.text.value_or(""), share);
    if (auto checked = share::checkTaskText(text); !checked) {
        report(environment.err, checked.error().message);
        return kExitDataError;
    }
    // The form opens even with nothing to save: it shows what was refused,
    // and the user may still type a task.
    const auto lock = services::AuthenticationManager::openUserLock();
    std::unique_ptr<ShareForm> form;
    if (!options.yes && environment.makeForm) {
        ShareFormSettings settings{options.screenshot};
        settings.lock = lock;
        for (const auto& skipped : share.skipped)
            if (skipped.itemIndex == 0)
                settings.notAttached.push_back(skipped.error.message);
        form = environment.makeForm(settings);
    }
    if (options.screenshot && !form) {
        report(environment.err, options.yes ? "--screenshot draws the form, which --yes leaves out"
                                            : "--screenshot needs the form: run it on a display "
                                              "or with QT_QPA_PLATFORM=offscreen");
        return kExitUsage;
    }
    if (auto something = share::checkSomethingToShare(share, text); !something && !form) {
        const bool gaveNothing =
            std::ranges::all_of(options.groups, [](const auto& group) { return group.empty(); });
        if (gaveNothing) {
            report(environment.err, "nothing to share: give a link, a path, --image or --text "
                                    "(\"tasket-share --help\" says more)");
            return kExitUsage;
        }
        report(environment.err, something.error().message);
        return exitCodeFor(something.error().code);
    }
    std::istream* promptInput = &environment.in;
    std::ifstream terminal;
    if (!form && !options.yes && options.readsStandardInput) {
        // Standard input held the picture; ask on the controlling terminal.
        terminal.open("/dev/tty");
        if (!terminal) {
            report(environment.err, "cannot ask for the text and the list: standard input held the "
                                    "picture and there is no terminal; give --yes");
            return kExitUsage;
        }
        promptInput = &terminal;
    }

    ShareSession session(options, environment, std::move(form), promptInput, lock);
    return session.run(std::move(share), std::move(text));
}

int runShareProgramMain(int argc, char** argv, const platform::ImageConverter& imageConverter,
                        decltype(ShareProgramEnvironment::makeForm) makeForm,
                        decltype(ShareProgramEnvironment::handOver) handOver) {
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        return runShareProgram(arguments,
                               {
                                   .in = std::cin,
                                   .out = std::cout,
                                   .err = std::cerr,
                                   .imageConverter = imageConverter,
                                   .standardInputIsTerminal = ::isatty(STDIN_FILENO) == 1,
                                   .makeForm = std::move(makeForm),
                                   .handOver = std::move(handOver),
                               });
    } catch (const std::exception& exception) {
        std::cerr << "tasket-share: internal error: " << exception.what() << '\n';
        return kExitSoftware;
    }
}

} // namespace tasket::apps
