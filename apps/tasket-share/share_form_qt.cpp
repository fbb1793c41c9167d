// The Qt form of tasket-share: owns the QApplication, runs the main queue's
// tasks inside Qt's event loop (each post wakes the loop, which pumps the
// queue), shows ShareFormWindow over the loaded controller and, for
// --screenshot, draws the shown window into a PNG file and cancels.
#include "platform/main_queue.h"
#include "tasket-share/share_form.h"
#include "tasket-share/share_form_model.h"
#include "tasket-share/share_form_window.h"
// After the library's headers, which Qt's "slots" macro would break.
#include "tasket-share/locked_screen.h"

#include <QApplication>
#include <QPixmap>
#include <QTimer>
#include <fmt/format.h>

#include <array>
#include <string>

namespace tasket::apps {
namespace {

using platform::MainQueue;

class QtShareForm final : public ShareForm {
  public:
    explicit QtShareForm(ShareFormSettings settings) : m_settings(std::move(settings)) {
        QApplication::setApplicationName(QStringLiteral("tasket-share"));
        QApplication::setDesktopFileName(QStringLiteral("tasket-share"));
        QApplication::setQuitOnLastWindowClosed(false); // the program ends once the save is done
        QApplication* application = &m_application;
        MainQueue::shared().setWakeUp([application] {
            QMetaObject::invokeMethod(
                application, [] { MainQueue::shared().pump(); }, Qt::QueuedConnection);
        });
    }

    ~QtShareForm() override { MainQueue::shared().setWakeUp(nullptr); }

    void present(share::ShareViewController& controller) override {
        if (m_settings.lock && m_settings.lock->isLocked()) {
            m_lockedScreen = std::make_unique<LockedScreen>(
                *m_settings.lock, [this, &controller] { present(controller); },
                [&controller] { controller.toolbar().cancel(); });
            showWindow(*m_lockedScreen);
            return;
        }
        m_model = std::make_unique<ShareFormModel>(controller, m_settings.notAttached);
        m_window = std::make_unique<ShareFormWindow>(*m_model);
        showWindow(*m_window);
    }

    void exec() override {
        // Tasks posted before the loop ran have woken nothing yet.
        QMetaObject::invokeMethod(
            &m_application, [] { MainQueue::shared().pump(); }, Qt::QueuedConnection);
        if (!m_quitRequested)
            QApplication::exec();
    }

    void quit() override {
        m_quitRequested = true;
        QApplication::exit(0);
    }

    platform::Result<void> outcome() const override { return m_outcome; }

  private:
    void showWindow(QDialog& window) {
        window.show();
        window.activateWindow();
        if (m_settings.screenshot)
            QTimer::singleShot(0, &window, [this, &window] { takeScreenshot(window); });
    }

    void takeScreenshot(QDialog& window) {
        const std::filesystem::path& path = *m_settings.screenshot;
        if (!window.grab().save(QString::fromStdString(path.string()), "PNG"))
            m_outcome =
                platform::fail(platform::Errc::ioError,
                               fmt::format("cannot write the screenshot \"{}\"", path.string()));
        window.reject();
    }

    ShareFormSettings m_settings;
    std::string m_programName = "tasket-share";
    int m_argc = 1;
    std::array<char*, 2> m_argv{m_programName.data(), nullptr};
    QApplication m_application{m_argc, m_argv.data()};
    std::unique_ptr<LockedScreen> m_lockedScreen;
    std::unique_ptr<ShareFormModel> m_model;
    std::unique_ptr<ShareFormWindow> m_window;
    bool m_quitRequested = false;
    platform::Result<void> m_outcome;
};

} // namespace

std::unique_ptr<ShareForm> makeShareForm(const ShareFormSettings& settings) {
    return std::make_unique<QtShareForm>(settings);
}

} // namespace tasket::apps
