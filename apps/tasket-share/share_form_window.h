// ShareFormWindow: the share form's window, a Qt dialog that draws a
// ShareFormModel and hands it what the user does. Text field, list picker,
// the link and files that go with the task, Cancel and Done; the new-list
// and paid-tier sheets open over it. It holds no logic of its own: every
// decision is the model's. Keyboard: Esc cancels, Enter (Ctrl+Enter in the
// text field) is Done, Tab walks text, list and buttons.
#pragma once

#include "tasket-share/share_form_model.h"

#include <QDialog>
#include <QPointer>

class QComboBox;
class QDialogButtonBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QMessageBox;
class QPlainTextEdit;
class QPushButton;

namespace tasket::apps {

class ShareFormWindow final : public QDialog {
  public:
    /// Draws `model`, which must outlive the window, and follows its changes.
    explicit ShareFormWindow(ShareFormModel& model, QWidget* parent = nullptr);
    ~ShareFormWindow() override;

    /// Done and Cancel, as the buttons and the keyboard reach them.
    void accept() override;
    void reject() override;

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void redraw();
    void redrawLists();
    void showSheet();
    void openNewListSheet();
    void openPremiumRequiredSheet();

    class ListEntries;

    ShareFormModel& m_model;
    QFormLayout* m_form = nullptr;
    QPlainTextEdit* m_text = nullptr;
    QComboBox* m_lists = nullptr;
    ListEntries* m_listEntries = nullptr;
    QLabel* m_link = nullptr;
    QLabel* m_files = nullptr;
    QLabel* m_problem = nullptr;
    QDialogButtonBox* m_buttons = nullptr;
    QPushButton* m_done = nullptr;
    QPointer<QDialog> m_newListSheet;
    QPointer<QMessageBox> m_premiumRequiredSheet;
};

} // namespace tasket::apps
