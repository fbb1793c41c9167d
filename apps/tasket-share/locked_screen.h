// LockedScreen: what the share form shows instead of its content while the
// app lock is engaged: "Tasket is Locked" and an Unlock button. Unlock asks
// through a password dialog for whatever the user's authentication stack
// asks (titled "Enter your password", for "unlock your secured data"); a
// wrong or cancelled answer leaves the screen locked with the reason shown.
// Nothing of the store is drawn here.
#pragma once

#include "services/authentication_manager.h"

#include <QDialog>

#include <functional>

class QLabel;
class QPushButton;

namespace tasket::apps {

class LockedScreen final : public QDialog {
  public:
    /// Over `lock` (which must outlive the screen); `unlocked` runs once the
    /// user authenticated, `cancelled` when they close the screen instead.
    LockedScreen(services::AuthenticationManager& lock, std::function<void()> unlocked,
                 std::function<void()> cancelled, QWidget* parent = nullptr);

    /// Asks for authentication now, as the Unlock button does.
    void unlock();
    void reject() override;

  private:
    services::AuthenticationManager& m_lock;
    std::function<void()> m_unlocked;
    std::function<void()> m_cancelled;
    QLabel* m_problem = nullptr;
    QPushButton* m_unlock = nullptr;
};

} // namespace tasket::apps
