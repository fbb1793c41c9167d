#include "share/shared_task.h"

#include "platform/text.h"

#include <fmt/format.h>

namespace tasket::share {

NewTaskDefaults NewTaskDefaults::read(const settings::CustomizationManager& customizationManager) {
    return {.isAllDay = customizationManager.isDueDateAllDay(),
            .isStartDateAllDay = customizationManager.isStartDateAllDay()};
}

std::shared_ptr<store::TK_Task>
insertSharedTask(NewSharedTask task, const std::shared_ptr<store::TK_Category>& category) {
    auto& context = *category->context();
    auto record = store::TK_Task::insertNew(context);
    record->setTaskID(task.taskID);
    record->setTitle(task.title);
    if (!task.url.empty())
        record->setUrl(task.url);
    record->setWhenCreated(task.whenCreated);
    record->setIsAllDay(task.defaults.isAllDay);
    record->setIsStartDateAllDay(task.defaults.isStartDateAllDay);
    std::int16_t sortIndex = 0;
    for (AttachmentPayload& payload : task.attachments) {
        auto attachment = store::TK_Attachment::insertNew(context);
        attachment->setIdentifier(payload.identifier);
        if (!payload.title.empty())
            attachment->setTitle(payload.title);
        attachment->setFileExtension(payload.fileExtension);
        attachment->setType(payload.type);
        attachment->setContent(std::move(payload.content));
        attachment->setCreationDate(payload.creationDate);
        attachment->setSortIndex(sortIndex++);
        attachment->setTask(record);
    }
    record->setCategory(category);
    return record;
}

platform::Result<void> checkTaskText(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == '\0')
            return platform::fail(platform::Errc::invalidArgument,
                                  fmt::format("the text holds a NUL byte (at byte {}), which a "
                                              "task's text cannot carry",
                                              i));
        const std::size_t length = platform::utf8SequenceLength(text, i);
        if (length == 0)
            return platform::fail(platform::Errc::invalidArgument,
                                  fmt::format("the text is not valid UTF-8 (at byte {})", i));
        i += length;
    }
    return {};
}

platform::Result<void> saveContext(objectstore::ObjectContext& context) {
    if (!context.hasChanges())
        return {};
    return context.save();
}

} // namespace tasket::share
