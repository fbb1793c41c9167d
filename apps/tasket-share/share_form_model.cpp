#include "tasket-share/share_form_model.h"

#include "rules/texts.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace tasket::apps {
namespace {

using share::TK_ShareCategoryPickerSheet;

std::string listLabel(const store::TK_Category& category, std::size_t taskCount) {
    return fmt::format("{} ({} {})", category.title().value_or(""), taskCount,
                       taskCount == 1 ? "task" : "tasks");
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kSpace = " \t\r\n\f\v";
    const auto first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

} // namespace

std::string describeSize(std::uintmax_t bytes) {
    if (bytes < 1000)
        return fmt::format("{} {}", bytes, bytes == 1 ? "byte" : "bytes");
    constexpr std::array<std::string_view, 5> kUnits = {"kB", "MB", "GB", "TB", "PB"};
    double value = static_cast<double>(bytes) / 1000.0;
    std::size_t unit = 0;
    // Round first, so 999 999 bytes reads "1.0 MB" and not "1000.0 kB".
    while (unit + 1 < kUnits.size() && value >= 999.95) {
        value /= 1000.0;
        ++unit;
    }
    return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

std::string describeAttachment(const share::AttachmentPayload& attachment) {
    std::string_view title = attachment.title;
    if (title.empty())
        title = "Picture";
    const std::string name = attachment.fileExtension.empty()
                                 ? std::string(title)
                                 : fmt::format("{}.{}", title, attachment.fileExtension);
    return fmt::format("{} ({})", name, describeSize(attachment.content.size()));
}

ShareFormModel::ShareFormModel(share::ShareViewController& controller,
                               std::vector<std::string> notAttached)
    : m_controller(controller) {
    for (const auto& attachment : controller.toolbar().attachments())
        m_attachments.push_back(describeAttachment(attachment));
    for (const auto& refused : controller.input().refused)
        notAttached.push_back(refused.message);
    for (const auto& why : notAttached)
        m_attachments.push_back(fmt::format("Not attached: {}", why));
    auto& picker = controller.picker();
    m_subscriptions.push_back(
        picker.selectedCategory().subscribe([this](const auto&) { notify(); }));
    m_subscriptions.push_back(picker.currentSheet().subscribe([this](const auto&) { notify(); }));
    m_subscriptions.push_back(controller.toolbar().isDonePremiumRequiredPresented().subscribe(
        [this](bool) { notify(); }));
    m_subscriptions.push_back(controller.localDataFetchManager()->categories().subscribe(
        [this](const auto&) { notify(); }));
}

void ShareFormModel::notify() {
    if (m_changed)
        m_changed();
}

const std::string& ShareFormModel::text() const {
    return m_controller.shareManager()->text().value();
}

std::shared_ptr<store::TK_Category> ShareFormModel::selectedList() const {
    const auto& selected = m_controller.picker().selectedCategory().value();
    if (!selected || selected->isDeleted() || !selected->context())
        return nullptr;
    return selected;
}

std::vector<ShareFormModel::ListRow> ShareFormModel::lists() const {
    auto categories = m_controller.picker().categories();
    const auto selected = selectedList();
    if (selected && std::ranges::find(categories, selected) == categories.end())
        categories.push_back(selected);
    std::vector<ListRow> rows;
    rows.reserve(categories.size() + 1);
    for (auto& category : categories)
        rows.push_back({std::move(category)});
    rows.push_back({nullptr});
    return rows;
}

std::string ShareFormModel::label(const ListRow& row) const {
    if (!row.category)
        return std::string(kNewListLabel);
    return listLabel(*row.category, m_controller.picker().numberOfTasks(*row.category));
}

std::size_t ShareFormModel::selectedRow(std::span<const ListRow> rows) const {
    const auto selected = selectedList();
    const auto found = std::ranges::find_if(
        rows, [&](const ListRow& row) { return row.category && row.category == selected; });
    return static_cast<std::size_t>(found - rows.begin());
}

std::string_view ShareFormModel::filesNote() const {
    return m_controller.input().isAddingAttachmentsWithoutPremium
               ? rules::texts::kFilesNeedPremium.translated()
               : std::string_view();
}

const std::string& ShareFormModel::link() const {
    return m_controller.toolbar().url();
}

ShareFormModel::Sheet ShareFormModel::sheet() const {
    const auto& pickerSheet = m_controller.picker().currentSheet().value();
    if (m_controller.toolbar().isDonePremiumRequiredPresented().value() ||
        pickerSheet == TK_ShareCategoryPickerSheet::tasketPremiumRequired)
        return Sheet::premiumRequired;
    if (pickerSheet == TK_ShareCategoryPickerSheet::newCategory)
        return Sheet::newList;
    return Sheet::none;
}

void ShareFormModel::setText(std::string text) {
    if (!m_isFinished)
        m_controller.shareManager()->setText(std::move(text));
}

void ShareFormModel::chooseRow(std::size_t row) {
    if (m_isFinished)
        return;
    auto rows = lists();
    if (row >= rows.size())
        return;
    if (rows[row].category) {
        m_problem.clear();
        m_controller.picker().select(std::move(rows[row].category));
    } else
        m_controller.picker().present(TK_ShareCategoryPickerSheet::newCategory);
}

platform::Result<void> ShareFormModel::createList(std::string_view title) {
    auto created = m_controller.picker().createCategory(trimmed(title));
    if (!created)
        return std::unexpected(created.error());
    return {};
}

void ShareFormModel::cancelNewList() {
    if (m_controller.picker().currentSheet().value() == TK_ShareCategoryPickerSheet::newCategory)
        m_controller.picker().dismissSheet();
    notify(); // the picker shows the list chosen before again
}

void ShareFormModel::closePremiumRequired() {
    auto& toolbar = m_controller.toolbar();
    if (toolbar.isDonePremiumRequiredPresented().value())
        toolbar.dismissPremiumRequired();
    if (m_controller.picker().currentSheet().value() ==
        TK_ShareCategoryPickerSheet::tasketPremiumRequired)
        m_controller.picker().dismissSheet();
}

void ShareFormModel::done() {
    if (m_isFinished)
        return;
    if (m_controller.picker().selectedCategory().value() && !selectedList()) {
        // Saving into a list another program deleted would fail after the
        // form is gone; say so while the user can still choose.
        m_problem = "The chosen list was deleted in another program. Choose another list.";
        notify();
        return;
    }
    using Outcome = share::ShareToolbarModel::DoneOutcome;
    m_isFinished = m_controller.toolbar().done() != Outcome::premiumRequiredShown;
    notify();
}

void ShareFormModel::cancel() {
    if (m_isFinished)
        return;
    m_isFinished = true;
    m_controller.toolbar().cancel();
    notify();
}

} // namespace tasket::apps
