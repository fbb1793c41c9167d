// seed_store: fills a store with lists and tasks for tests and scripts, the
// way the main application would have left them, without going through the
// programs under test.
//
//   seed_store FOLDER [--list TITLE [--task TITLE [--url URL] [--attach FILE]...]...]...
//                     [--rename TITLE=NEW]... [--delete TITLE]...
//
// FOLDER is the application-group folder (made 0700 when missing). Lists
// take the user's order in which they are named; a task goes into the list
// named last, and a later task is newer. --rename and --delete change the
// stored lists of that title, as another program would. Prints one line per
// record made: "list<TAB>ID<TAB>TITLE" or "task<TAB>ID<TAB>TITLE".
#include "platform/date.h"
#include "platform/uuid.h"
#include "store/local_data_manager.h"
#include "store/records.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

using namespace tasket;

namespace {

int usage(std::string_view problem) {
    std::cerr << "seed_store: " << problem
              << "\nusage: seed_store FOLDER [--list TITLE [--task TITLE [--url URL] "
                 "[--attach FILE]...]...]... [--rename TITLE=NEW]... [--delete TITLE]...\n";
    return 64;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2)
        return usage("no folder given");
    const std::filesystem::path folder = argv[1];
    std::filesystem::create_directories(folder);
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
    auto data = store::LocalDataManager::make(folder);
    data->setWatchesOtherProcesses(false);
    auto& view = *data->viewContext();

    std::shared_ptr<store::TK_Category> list;
    std::shared_ptr<store::TK_Task> task;
    std::int16_t lists = 0;
    double created = 0;
    for (int i = 2; i < argc; i += 2) {
        const std::string_view option = argv[i];
        if (i + 1 >= argc)
            return usage(std::string(option) + " needs a value");
        const std::string value = argv[i + 1];
        if (option == "--list") {
            list = store::TK_Category::insertNew(view);
            list->setCategoryID(platform::Uuid::generate().toString());
            list->setTitle(value);
            list->setSortIndex(lists++);
            list->setWhenCreated(platform::Date{++created});
            std::cout << "list\t" << *list->categoryID() << '\t' << value << '\n';
        } else if (option == "--rename" || option == "--delete") {
            const auto equals = value.find('=');
            const std::string title = option == "--rename" ? value.substr(0, equals) : value;
            const auto stored = view.fetch(store::TK_Category::fetchRequest());
            for (const auto& object : *stored) {
                auto named = std::static_pointer_cast<store::TK_Category>(object);
                if (named->title() != title)
                    continue;
                if (option == "--delete")
                    view.deleteObject(named);
                else if (equals != std::string::npos)
                    named->setTitle(value.substr(equals + 1));
            }
        } else if (option == "--task" && list) {
            task = store::TK_Task::insertNew(view);
            task->setTaskID(platform::Uuid::generate().toString());
            task->setTitle(value);
            task->setWhenCreated(platform::Date{++created});
            task->setCategory(list);
            std::cout << "task\t" << *task->taskID() << '\t' << value << '\n';
        } else if (option == "--url" && task) {
            task->setUrl(value);
        } else if (option == "--attach" && task) {
            const std::filesystem::path file = value;
            std::ifstream in(file, std::ios::binary);
            if (!in)
                return usage("cannot read " + value);
            auto attachment = store::TK_Attachment::insertNew(view);
            attachment->setIdentifier(platform::Uuid::generate().toString());
            attachment->setTitle(file.stem().string());
            const std::string extension = file.extension().string();
            attachment->setFileExtension(extension.empty() ? extension : extension.substr(1));
            attachment->setType(rules::TK_AttachmentType::file);
            attachment->setContent(objectstore::Bytes(std::istreambuf_iterator<char>(in), {}));
            attachment->setTask(task);
        } else {
            return usage(std::string(option) + " is not an option here");
        }
    }
    if (auto saved = view.save(); !saved) {
        std::cerr << "seed_store: " << saved.error().message << '\n';
        return 74;
    }
    return 0;
}
