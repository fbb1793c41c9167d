#include "tasket-share/share_form_window.h"

#include "rules/texts.h"

#include <QAbstractListModel>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFontMetrics>
#include <QFormLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

namespace tasket::apps {
namespace {

QString fromUtf8(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// The widest a link is drawn before its middle is elided, in average characters.
constexpr int kLinkWidthInCharacters = 56;

// The list picker's width, in average characters: its entries are not all
// measured (see ListEntries).
constexpr int kListWidthInCharacters = 28;

bool isEnter(const QKeyEvent& key) {
    return key.key() == Qt::Key_Return || key.key() == Qt::Key_Enter;
}

} // namespace

// The list picker's entries, each labelled only when a view asks for it:
// a label counts the list's tasks, which takes a query, and a store may
// hold a thousand lists of which the closed picker shows one.
class ShareFormWindow::ListEntries final : public QAbstractListModel {
  public:
    ListEntries(const ShareFormModel& model, QObject* parent)
        : QAbstractListModel(parent), m_model(model) {}

    int rowCount(const QModelIndex& parent) const override {
        return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
    }

    QVariant data(const QModelIndex& index, int role) const override {
        if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::EditRole))
            return {};
        const auto row = static_cast<std::size_t>(index.row());
        if (row >= m_rows.size())
            return {};
        QString& label = m_labels[row];
        if (label.isNull())
            label = fromUtf8(m_model.label(m_rows[row]));
        return label;
    }

    const std::vector<ShareFormModel::ListRow>& rows() const { return m_rows; }

    /// Follows the model: other lists reset the entries; the same lists
    /// forget their labels, as titles and counts may have changed.
    void update() {
        auto rows = m_model.lists();
        if (!std::ranges::equal(rows, m_rows, {}, &ShareFormModel::ListRow::category,
                                &ShareFormModel::ListRow::category)) {
            beginResetModel();
            m_rows = std::move(rows);
            m_labels = std::vector<QString>(m_rows.size());
            endResetModel();
        } else if (!m_rows.empty()) {
            std::ranges::fill(m_labels, QString());
            emit dataChanged(index(0), index(rowCount({}) - 1), {Qt::DisplayRole});
        }
    }

  private:
    const ShareFormModel& m_model;
    std::vector<ShareFormModel::ListRow> m_rows;
    mutable std::vector<QString> m_labels; // null: not asked for yet
};

ShareFormWindow::ShareFormWindow(ShareFormModel& model, QWidget* parent)
    : QDialog(parent), m_model(model) {
    setWindowTitle(fromUtf8(ShareFormModel::kWindowTitle));

    m_text = new QPlainTextEdit(this);
    m_text->setObjectName(QStringLiteral("text"));
    m_text->setTabChangesFocus(true);
    m_text->setPlainText(fromUtf8(m_model.text()));
    m_text->moveCursor(QTextCursor::End);
    m_text->setMinimumHeight(m_text->fontMetrics().lineSpacing() * 4);
    m_text->installEventFilter(this);

    m_lists = new QComboBox(this);
    m_lists->setObjectName(QStringLiteral("lists"));
    m_listEntries = new ListEntries(m_model, this);
    m_lists->setModel(m_listEntries);
    m_lists->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_lists->setMinimumContentsLength(kListWidthInCharacters);
    if (auto* view = qobject_cast<QListView*>(m_lists->view()))
        view->setUniformItemSizes(true);

    m_link = new QLabel(this);
    m_link->setObjectName(QStringLiteral("link"));
    m_link->setTextFormat(Qt::PlainText);
    m_link->setTextInteractionFlags(Qt::TextSelectableByMouse);

    m_files = new QLabel(this);
    m_files->setObjectName(QStringLiteral("files"));
    m_files->setTextFormat(Qt::PlainText);
    m_files->setTextInteractionFlags(Qt::TextSelectableByMouse);

    m_problem = new QLabel(this);
    m_problem->setObjectName(QStringLiteral("problem"));
    m_problem->setTextFormat(Qt::PlainText);
    m_problem->setWordWrap(true);

    m_form = new QFormLayout;
    m_form->addRow(tr("&Text:"), m_text);
    m_form->addRow(tr("&List:"), m_lists);
    m_form->addRow(tr("Link:"), m_link);
    m_form->addRow(tr("Files:"), m_files);
    m_form->addRow(m_problem);

    m_buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    m_done = m_buttons->addButton(tr("&Done"), QDialogButtonBox::AcceptRole);
    m_done->setObjectName(QStringLiteral("done"));
    m_done->setDefault(true);
    connect(m_buttons, &QDialogButtonBox::accepted, this, &ShareFormWindow::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &ShareFormWindow::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(m_form, 1);
    layout->addWidget(m_buttons);

    setTabOrder(m_text, m_lists);
    setTabOrder(m_lists, m_buttons);
    setMinimumWidth(m_text->fontMetrics().averageCharWidth() * kLinkWidthInCharacters);
    m_text->setFocus();

    connect(m_text, &QPlainTextEdit::textChanged, this,
            [this] { m_model.setText(m_text->toPlainText().toStdString()); });
    connect(m_lists, &QComboBox::activated, this,
            [this](int row) { m_model.chooseRow(static_cast<std::size_t>(row)); });
    m_model.setOnChange([this] { redraw(); });
    redraw();
}

ShareFormWindow::~ShareFormWindow() {
    m_model.setOnChange(nullptr);
}

void ShareFormWindow::accept() {
    m_model.done();
}

void ShareFormWindow::reject() {
    m_model.cancel();
}

bool ShareFormWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_text && event->type() == QEvent::KeyPress) {
        const auto& key = *static_cast<QKeyEvent*>(event);
        if (isEnter(key) && key.modifiers().testFlag(Qt::ControlModifier)) {
            accept();
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void ShareFormWindow::redraw() {
    redrawLists();

    const QString link = fromUtf8(m_model.link());
    const int linkWidth = fontMetrics().averageCharWidth() * kLinkWidthInCharacters;
    m_link->setText(m_link->fontMetrics().elidedText(link, Qt::ElideMiddle, linkWidth));
    m_link->setToolTip(link);
    m_form->setRowVisible(m_link, !link.isEmpty());

    QStringList files;
    for (const auto& attachment : m_model.attachments())
        files.append(fromUtf8(attachment));
    if (!m_model.filesNote().empty())
        files.append(fromUtf8(m_model.filesNote()));
    m_files->setText(files.join(QLatin1Char('\n')));
    m_form->setRowVisible(m_files, !files.isEmpty());

    m_problem->setText(fromUtf8(m_model.problem()));
    m_form->setRowVisible(m_problem, !m_model.problem().empty());

    const bool takesInput = !m_model.isFinished();
    m_text->setReadOnly(!takesInput);
    m_lists->setEnabled(takesInput);
    m_buttons->setEnabled(takesInput);

    showSheet();
}

void ShareFormWindow::redrawLists() {
    m_listEntries->update();
    m_lists->setCurrentIndex(static_cast<int>(m_model.selectedRow(m_listEntries->rows())));
}

void ShareFormWindow::showSheet() {
    const auto isOpen = [](const QDialog* sheet) { return sheet && sheet->isVisible(); };
    switch (m_model.sheet()) {
    case ShareFormModel::Sheet::newList:
        if (!isOpen(m_newListSheet))
            openNewListSheet();
        break;
    case ShareFormModel::Sheet::premiumRequired:
        if (!isOpen(m_premiumRequiredSheet))
            openPremiumRequiredSheet();
        break;
    case ShareFormModel::Sheet::none:
        // Closed by the model: their handlers see no sheet and do nothing.
        if (isOpen(m_newListSheet))
            m_newListSheet->close();
        if (isOpen(m_premiumRequiredSheet))
            m_premiumRequiredSheet->close();
        break;
    }
}

void ShareFormWindow::openNewListSheet() {
    auto* sheet = new QDialog(this);
    sheet->setObjectName(QStringLiteral("newListSheet"));
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->setWindowTitle(tr("New List"));

    auto* title = new QLineEdit(sheet);
    title->setObjectName(QStringLiteral("title"));
    auto* label = new QLabel(tr("&Title of the new list:"), sheet);
    label->setBuddy(title);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, sheet);
    QPushButton* ok = buttons->button(QDialogButtonBox::Ok);
    ok->setEnabled(false);
    connect(title, &QLineEdit::textChanged, ok,
            [ok](const QString& text) { ok->setEnabled(!text.trimmed().isEmpty()); });
    connect(buttons, &QDialogButtonBox::accepted, sheet, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, sheet, &QDialog::reject);

    auto* layout = new QVBoxLayout(sheet);
    layout->addWidget(label);
    layout->addWidget(title);
    layout->addWidget(buttons);

    connect(sheet, &QDialog::finished, this, [this, title](int result) {
        if (m_model.sheet() != ShareFormModel::Sheet::newList)
            return;
        if (result == QDialog::Accepted && m_model.createList(title->text().toStdString()))
            return;
        m_model.cancelNewList();
    });
    m_newListSheet = sheet;
    sheet->open();
    title->setFocus();
}

void ShareFormWindow::openPremiumRequiredSheet() {
    const QString title = fromUtf8(rules::texts::kPremiumRequired.translated());
    auto* sheet = new QMessageBox(QMessageBox::Information, title, title, QMessageBox::Ok, this);
    sheet->setObjectName(QStringLiteral("premiumRequiredSheet"));
    sheet->setInformativeText(fromUtf8(rules::texts::kPremiumRequiredMessage.translated()));
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    connect(sheet, &QDialog::finished, this, [this] {
        if (m_model.sheet() == ShareFormModel::Sheet::premiumRequired)
            m_model.closePremiumRequired();
    });
    m_premiumRequiredSheet = sheet;
    sheet->open();
}

} // namespace tasket::apps
