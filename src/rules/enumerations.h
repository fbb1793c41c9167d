// Every closed enumeration of the domain, and the list of them all, which
// lets generic code (tests, command-line listings) visit each one in turn.
#pragma once

#include "rules/action_enumerations.h"
#include "rules/attachment_enumerations.h"
#include "rules/cloud_enumerations.h"
#include "rules/color_enumerations.h"
#include "rules/enum_table.h"
#include "rules/filter_enumerations.h"
#include "rules/list_view_enumerations.h"
#include "rules/object_enumerations.h"
#include "rules/settings_enumerations.h"

namespace tasket::rules {

template <class... E> struct EnumList {
    static constexpr std::size_t size = sizeof...(E);
    /// Calls `visit.template operator()<E>()` for each enumeration in order.
    template <class Visitor> static constexpr void forEach(Visitor&& visit) {
        (visit.template operator()<E>(), ...);
    }
};

using AllEnumerations = EnumList<
    // list views and ordering
    TK_TasksViewType, TK_TasksViewAppearance, TK_TasksBoardType, TK_TasksSortOrder,
    TK_ObjectsSortOrderDirection, TK_ObjectsSortOrder, TK_TasksFilter,
    // smart-list filters
    TK_CompletedFilter, TK_NotesFilter, TK_URLFilter, TK_ReminderFilter, TK_RelativeDate,
    TK_CategoryFilter, TK_SubtaskFilter, TK_TagFilter, TK_PriorityFilter, TK_StatusFilter,
    TK_ValueFilter, TK_PinFilter, TK_AttachmentsSmartFilter, TK_SmartFilter,
    // list actions and menus
    TK_ListAction, TK_MarkAsDoneAction, TK_ScheduleReminderAction, TK_ScheduleReminderActionType,
    TK_ScheduleReminderActionTimePeriod, TK_TaskAction, TK_TaskActionsSection,
    TK_BoardSectionAction, TK_AttributeAction, TK_DuplicationType,
    // object kinds and reminders
    TK_ObjectType, TK_FolderObjectType, TK_CalendarType, TK_RepeatInterval,
    TK_ReminderInterruptionLevel,
    // colours and look
    TK_Color, TK_TintColor, TK_IconSize, TK_Appearance,
    // settings
    TK_TimelineType, TK_UnassignedSectionPlacement, TK_TaskBadgesBackgroundType,
    TK_TaskStartDateBadgeType, TK_TaskDueDateBadgeType, TK_TaskCategoryBadgeType,
    TK_TaskPriorityBadgeType, TK_TaskStatusBadgeType, TK_TaskTagBadgeType, TK_TaskValueBadgeType,
    TK_TaskURLBadgeType, TK_AssistOption, TK_Database, TK_RemindersDatabaseType,
    // attachments
    TK_AttachmentType, TK_AttachmentImageType, TK_AttachmentsFilter, TK_AttachmentsSortOrder,
    TK_AttachmentsSortOrderDirection, TK_AttachmentsViewType, TK_AttachmentThumbnailType,
    // cloud
    TK_CloudAccountStatus, TK_CloudSyncStatus, TK_CloudDatabaseType>;

} // namespace tasket::rules
