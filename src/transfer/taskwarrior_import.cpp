#include "transfer/taskwarrior_import.h"

#include "platform/calendar.h"
#include "platform/uuid.h"
#include "store/records.h"
#include "transfer/detail/record_decoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <ctime>
#include <map>

namespace tasket::transfer {
namespace {

namespace dom = simdjson::dom;
using platform::Date;
using platform::Errc;
using platform::Result;

constexpr std::string_view kInbox = "Inbox";

// "20240611T093000Z" (UTC) as a date.
std::optional<Date> peerDate(std::string_view text) {
    if (text.size() != 16 || text[8] != 'T' || text[15] != 'Z')
        return std::nullopt;
    int fields[6] = {};
    constexpr std::size_t kAt[6] = {0, 4, 6, 9, 11, 13};
    constexpr std::size_t kWidth[6] = {4, 2, 2, 2, 2, 2};
    for (std::size_t f = 0; f < 6; ++f)
        for (std::size_t i = kAt[f]; i < kAt[f] + kWidth[f]; ++i) {
            if (!std::isdigit(static_cast<unsigned char>(text[i])))
                return std::nullopt;
            fields[f] = fields[f] * 10 + (text[i] - '0');
        }
    std::tm tm{};
    tm.tm_year = fields[0] - 1900;
    tm.tm_mon = fields[1] - 1;
    tm.tm_mday = fields[2];
    tm.tm_hour = fields[3];
    tm.tm_min = fields[4];
    tm.tm_sec = fields[5];
    const std::time_t seconds = timegm(&tm);
    // timegm rolls an impossible field over (month 13, day 32): refuse it.
    if (tm.tm_year != fields[0] - 1900 || tm.tm_mon != fields[1] - 1 || tm.tm_mday != fields[2] ||
        tm.tm_hour != fields[3] || tm.tm_min != fields[4] || tm.tm_sec != fields[5])
        return std::nullopt;
    return Date::fromUnix(static_cast<double>(seconds));
}

// The lists or tags of the store and of this import, by title.
class ByTitle {
  public:
    template <class Record> Result<void> load(objectstore::ObjectContext& context) {
        auto all = context.fetch(Record::fetchRequest());
        if (!all)
            return std::unexpected(all.error());
        for (const auto& object : *all) {
            const auto* title = std::get_if<std::string>(&object->value("title"));
            if (auto id = recordIdentifier(*object); title && !id.empty())
                m_ids.emplace(*title, std::move(id));
        }
        m_next = static_cast<std::int64_t>(all->size());
        return {};
    }

    // The identifier of the one titled `title`; `create` makes its record
    // when there is none yet.
    template <class Make> const std::string& find(const std::string& title, Make&& create) {
        if (auto found = m_ids.find(title); found != m_ids.end())
            return found->second;
        auto id = platform::Uuid::generate().toString();
        create(id, title, m_next++);
        return m_ids.emplace(title, std::move(id)).first->second;
    }

  private:
    std::map<std::string, std::string, std::less<>> m_ids;
    std::int64_t m_next = 0;
};

std::string upper(std::string_view text) {
    std::string out(text);
    std::ranges::transform(out, out.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return out;
}

} // namespace

Result<std::size_t> addTaskwarriorExport(Importer& importer, std::string_view json) {
    dom::element document;
    if (auto error = detail::parseText(json).get(document))
        return platform::fail(Errc::parseError,
                              fmt::format("not valid JSON ({})", simdjson::error_message(error)));
    if (document.type() != dom::element_type::ARRAY)
        return platform::fail(Errc::parseError,
                              "not a Taskwarrior export: a JSON array of tasks was expected");
    const auto calendar = platform::Calendar::current();
    const Date now = Date::fromSystem(std::chrono::system_clock::now());
    ByTitle lists;
    ByTitle tags;
    // The store's own lists and tags are matched by title; without them
    // every project and tag would be made again.
    if (auto loaded = lists.load<store::TK_Category>(importer.context()); !loaded)
        return std::unexpected(loaded.error());
    if (auto loaded = tags.load<store::TK_Tag>(importer.context()); !loaded)
        return std::unexpected(loaded.error());
    auto newList = [&](const std::string& id, const std::string& title, std::int64_t index) {
        TK_SharedCategory list{.id = id};
        list.title = title;
        list.creationDate = now;
        list.sortIndex = index;
        return importer.add(list);
    };
    auto newTag = [&](const std::string& id, const std::string& title, std::int64_t index) {
        TK_SharedTag tag{.id = id};
        tag.title = title;
        tag.creationDate = now;
        tag.sortIndex = index;
        return importer.add(tag);
    };

    std::size_t number = 0;
    std::size_t deleted = 0;
    const dom::array items = document.get_array().value_unsafe();
    for (const dom::element item : items) {
        ++number;
        const std::string where = fmt::format("task {}", number);
        auto bad = [&](std::string_view key, std::string_view problem) {
            return platform::fail(Errc::parseError,
                                  fmt::format("{}: \"{}\" {}", where, key, problem));
        };
        if (item.type() != dom::element_type::OBJECT)
            return bad("", "must be an object");
        const dom::object object = item.get_object().value_unsafe();
        auto text = [&](std::string_view key, std::string_view& out) -> Result<bool> {
            const auto value = object.at_key(key);
            if (value.error() == simdjson::NO_SUCH_FIELD)
                return false;
            if (value.get_string().get(out) != simdjson::SUCCESS)
                return bad(key, "must be a string");
            return true;
        };
        auto date = [&](std::string_view key, std::optional<Date>& out) -> Result<void> {
            std::string_view value;
            auto present = text(key, value);
            if (!present)
                return std::unexpected(present.error());
            if (*present && !(out = peerDate(value)))
                return bad(key, "must be a date like 20240611T093000Z");
            return {};
        };
        std::string_view status;
        std::string_view uuid;
        std::string_view description;
        std::string_view project;
        for (auto [key, out] : {std::pair{"status", &status},
                                {"uuid", &uuid},
                                {"description", &description},
                                {"project", &project}})
            if (auto read = text(key, *out); !read)
                return std::unexpected(read.error());
        if (!platform::Uuid::parse(uuid))
            return bad("uuid", "must be a UUID");
        if (status == "deleted") {
            ++deleted;
            continue;
        }

        TK_SharedTask task{.id = upper(uuid)};
        task.title = std::string(description);
        task.isCompleted = status == "completed";
        std::optional<Date> entry, due, scheduled;
        for (auto [key, out] :
             {std::pair{"entry", &entry}, {"due", &due}, {"scheduled", &scheduled}})
            if (auto ok = date(key, *out); !ok)
                return std::unexpected(ok.error());
        task.creationDate = entry;
        if (due) {
            task.dueDateAndTime = due;
            task.dueDate = calendar.startOfDay(*due);
        }
        if (scheduled) {
            task.startDateAndTime = scheduled;
            task.startDate = calendar.startOfDay(*scheduled);
        }
        if (const auto annotations = object.at_key("annotations"); !annotations.error()) {
            dom::array list;
            if (annotations.get_array().get(list))
                return bad("annotations", "must be a list");
            std::string notes;
            for (const dom::element annotation : list) {
                std::string_view line;
                if (annotation["description"].get_string().get(line))
                    return bad("annotations", "must hold objects with a \"description\" string");
                notes += notes.empty() ? "" : "\n";
                notes += line;
            }
            task.notes = std::move(notes);
        }
        const std::string listTitle(project.empty() ? kInbox : project);
        Result<void> made;
        task.category = lists.find(listTitle, [&](auto&&... a) { made = newList(a...); });
        if (!made)
            return std::unexpected(made.error());
        task.tags.emplace();
        if (const auto names = object.at_key("tags"); !names.error()) {
            dom::array list;
            if (names.get_array().get(list))
                return bad("tags", "must be a list of strings");
            for (const dom::element name : list) {
                std::string_view title;
                if (name.get_string().get(title))
                    return bad("tags", "must be a list of strings");
                task.tags->push_back(
                    tags.find(std::string(title), [&](auto&&... a) { made = newTag(a...); }));
                if (!made)
                    return std::unexpected(made.error());
            }
        }
        if (auto added = importer.add(task); !added)
            return std::unexpected(
                platform::Error{added.error().code, where + ": " + added.error().message});
    }
    return deleted;
}

} // namespace tasket::transfer
