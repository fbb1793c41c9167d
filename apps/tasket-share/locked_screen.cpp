#include "tasket-share/locked_screen.h"

#include "rules/texts.h"

#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tasket::apps {

namespace texts = rules::texts;

namespace {

QString qt(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

LockedScreen::LockedScreen(services::AuthenticationManager& lock, std::function<void()> unlocked,
                           std::function<void()> cancelled, QWidget* parent)
    : QDialog(parent), m_lock(lock), m_unlocked(std::move(unlocked)),
      m_cancelled(std::move(cancelled)) {
    setWindowTitle(qt(texts::kTasketIsLocked.translated()));
    auto* layout = new QVBoxLayout(this);
    auto* title = new QLabel(qt(texts::kTasketIsLocked.translated()), this);
    QFont font = title->font();
    font.setPointSizeF(font.pointSizeF() * 1.4);
    font.setBold(true);
    title->setFont(font);
    title->setAlignment(Qt::AlignCenter);
    m_problem = new QLabel(this);
    m_problem->setWordWrap(true);
    m_problem->setAlignment(Qt::AlignCenter);
    m_problem->hide();
    m_unlock = new QPushButton(qt(texts::kUnlock.translated()), this);
    m_unlock->setDefault(true);
    layout->addWidget(title);
    layout->addWidget(m_problem);
    layout->addWidget(m_unlock, 0, Qt::AlignCenter);
    connect(m_unlock, &QPushButton::clicked, this, [this] { unlock(); });
}

void LockedScreen::unlock() {
    // Each question of the stack gets its own password dialog; closing one cancels.
    const auto answer =
        [this](const platform::AuthenticationPrompt& prompt) -> std::optional<std::string> {
        QInputDialog dialog(this);
        dialog.setWindowTitle(qt(texts::kEnterYourPassword.translated()));
        dialog.setLabelText(qt(texts::kUnlockReason.translated()) + QStringLiteral("\n") +
                            qt(prompt.text));
        dialog.setTextEchoMode(prompt.echo ? QLineEdit::Normal : QLineEdit::Password);
        if (dialog.exec() != QDialog::Accepted)
            return std::nullopt;
        return dialog.textValue().toStdString();
    };
    const auto inform = [this](std::string_view message) {
        m_problem->setText(qt(message));
        m_problem->show();
    };
    if (auto unlocked = m_lock.unlock(answer, inform); !unlocked) {
        inform(unlocked.error().message);
        return;
    }
    hide();
    m_unlocked();
}

void LockedScreen::reject() {
    QDialog::reject();
    m_cancelled();
}

} // namespace tasket::apps
