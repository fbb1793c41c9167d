#include "share/share_manager.h"
