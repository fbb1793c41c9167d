#include "objectstore/model/sql_identifier.h"

namespace tasket::objectstore::detail {

std::string quoteIdentifier(std::string_view name) {
    std::string out;
    out.reserve(name.size() + 2);
    out += '"';
    for (std::size_t at = 0;;) {
        const auto quote = name.find('"', at);
        out.append(name.substr(at, quote == std::string_view::npos ? quote : quote + 1 - at));
        if (quote == std::string_view::npos)
            break;
        out += '"'; // a quote inside is doubled
        at = quote + 1;
    }
    out += '"';
    return out;
}

} // namespace tasket::objectstore::detail
