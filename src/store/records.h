// Every record class of the TK_Data model, for code that works with several.
#pragma once

#include "store/tk_attachment.h"
#include "store/tk_attribute.h"
#include "store/tk_attribute_value.h"
#include "store/tk_board_section.h"
#include "store/tk_category.h"
#include "store/tk_folder.h"
#include "store/tk_priority.h"
#include "store/tk_smart_category.h"
#include "store/tk_status.h"
#include "store/tk_subtask.h"
#include "store/tk_tag.h"
#include "store/tk_task.h"
