// Test helper: another process writing to a store.
//   store_writer PATH burst N     N saves back to back, one item each
//   store_writer PATH crash       saves an item and a label per save, for
//                                 ever, printing each committed number
#include "objectstore/object_context.h"
#include "support/test_model.h"

#include <cstdio>
#include <cstring>
#include <string>

using namespace tasket::objectstore;

int main(int argc, char** argv) {
    if (argc < 3)
        return 2;
    auto store =
        PersistentStore::open(argv[1], tasket::testing::makeTestModel(), StoreOptions{true, false});
    if (!store) {
        std::fprintf(stderr, "%s\n", store.error().message.c_str());
        return 1;
    }
    auto c = ObjectContext::make(*store, ConcurrencyType::privateQueue);
    c->setName("Writer");
    int status = 0;
    c->performAndWait([&] {
        if (std::strcmp(argv[2], "burst") == 0) {
            const int n = argc > 3 ? std::atoi(argv[3]) : 5;
            for (int i = 0; i < n; ++i) {
                c->insertNewObject("Item")->setValue("title", "burst " + std::to_string(i));
                if (!c->save())
                    status = 1;
            }
            return;
        }
        const auto labels = *(*store)->model().entity("Item")->propertyIndex("labels");
        for (long n = 1;; ++n) {
            auto item = c->insertNewObject("Item");
            auto label = c->insertNewObject("Label");
            item->setValue("title", std::to_string(n));
            label->setValue("name", std::to_string(n));
            item->addToMany(labels, label);
            if (!c->save()) {
                status = 1;
                return;
            }
            std::printf("%ld\n", n);
            std::fflush(stdout);
            c->reset();
        }
    });
    return status;
}
