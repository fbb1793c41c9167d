// The statements that set up the server side of the cloud database
// (cloud_schema.sql, built into the program): safe to run again, by any role.
#pragma once

#include <string_view>

namespace tasket::platform {

std::string_view cloudSchema();

} // namespace tasket::platform
