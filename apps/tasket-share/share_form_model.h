// ShareFormModel: what the share form shows and what its controls do, over
// a loaded ShareViewController, without a widget in sight: the task's text,
// the lists offered (each with its task count, then "New List…"), the files
// and the link that go with the task, the sheet that is open, and whether
// the form still takes input. The view draws it after every change it
// reports and hands it the user's actions. Use on the main queue.
#pragma once

#include "platform/error.h"
#include "platform/published.h"
#include "share/attachment_payload.h"
#include "share/paid_tier.h"
#include "share/share_view_controller.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::apps {

class ShareFormModel {
  public:
    static constexpr std::string_view kWindowTitle = "Share to Tasket";
    static constexpr std::string_view kNewListLabel = "New List…";

    /// One entry of the list picker.
    struct ListRow {
        std::shared_ptr<store::TK_Category> category; // null: the "New List…" entry
    };

    enum class Sheet { none, newList, premiumRequired };

    /// Follows `controller`, whose form is loaded and which outlives the
    /// model. `notAttached` says why shared files never reached the
    /// controller (refused before it was made), one message each.
    explicit ShareFormModel(share::ShareViewController& controller,
                            std::vector<std::string> notAttached = {});
    ShareFormModel(const ShareFormModel&) = delete;
    ShareFormModel& operator=(const ShareFormModel&) = delete;

    /// `changed` runs on the main queue after anything the form shows changed.
    void setOnChange(std::function<void()> changed) { m_changed = std::move(changed); }

    // ---- What the form shows ----------------------------------------------------------

    const std::string& text() const;
    /// The offered lists in the user's order (the selected one included even
    /// before the store lists it), then the "New List…" entry.
    std::vector<ListRow> lists() const;
    /// What the picker shows for `row`: "Inbox (3 tasks)". Counting takes a
    /// query, so a view asks only for the entries it shows.
    std::string label(const ListRow& row) const;
    /// The entry of `rows`, as lists() gave them, that is selected: the
    /// chosen list's.
    std::size_t selectedRow(std::span<const ListRow> rows) const;
    /// "name.ext (size)" for each file or picture that goes with the task,
    /// then "Not attached: why" for each one that was refused.
    const std::vector<std::string>& attachments() const { return m_attachments; }
    /// Set when files or pictures were shared but are left out.
    std::string_view filesNote() const;
    const std::string& link() const;
    Sheet sheet() const;
    /// Done or Cancel has ended the form: it takes no more input.
    bool isFinished() const { return m_isFinished; }
    /// Why the last Done did not save (the chosen list is gone); empty
    /// once another list is chosen.
    const std::string& problem() const { return m_problem; }

    // ---- What the user does -----------------------------------------------------------

    void setText(std::string text);
    /// Selects the list of entry `row`; the "New List…" entry opens its sheet.
    void chooseRow(std::size_t row);
    /// The new-list sheet's OK: a list titled `title` (spaces around it
    /// dropped), selected. Fails with invalidArgument for a blank title.
    [[nodiscard]] platform::Result<void> createList(std::string_view title);
    /// The new-list sheet's Cancel: closed, the list chosen before kept.
    void cancelNewList();
    /// Closes the paid-tier notice.
    void closePremiumRequired();
    void done();
    void cancel();

  private:
    void notify();
    /// The selected list, unless another program deleted it.
    std::shared_ptr<store::TK_Category> selectedList() const;

    share::ShareViewController& m_controller;
    std::vector<std::string> m_attachments;
    bool m_isFinished = false;
    std::string m_problem;
    std::function<void()> m_changed;
    std::vector<platform::Subscription> m_subscriptions;
};

/// "1 byte", "999 bytes", "1.5 kB", "12.0 MB": decimal units, as file managers show.
std::string describeSize(std::uintmax_t bytes);

/// "name.ext (size)"; a picture held in memory is called "Picture".
std::string describeAttachment(const share::AttachmentPayload& attachment);

} // namespace tasket::apps
