#include <gtest/gtest.h>

#include "../fuzz/dictionary_model.h"
#include "support/random_inputs.h"

namespace NIVUR {
namespace {

TEST(Dictionary, DoesAsAMapOfTexts) {
    const auto compare = [](Input& input) { checkReadAgain(DictionaryModel(input).run()); };
    runOnRandomInputs(compare, 100, 900);
}

void expectSame(const Dictionary& record, const std::map<std::string, long long>& model) {
    std::vector<std::pair<std::string, long long>> found, wanted(model.begin(), model.end());
    for (const std::string& key : record.allKeys())
        found.emplace_back(key, record.getInteger(key));
    EXPECT_EQ(found, wanted);
    EXPECT_EQ(record.size(), wanted.size());
}

TEST(Dictionary, KeepsManyKeysInOrderHoweverTheyComeAndGo) {
    for (const int step : {1, 999, 69}) {  // ascending, descending, into the middle of full blocks
        SCOPED_TRACE(step);
        Dictionary record, copy;
        std::map<std::string, long long> model, modelOfCopy;
        for (int i = 0; i < 4000; ++i) {  // all keys are set, most erased, all set, all erased
            const std::string key = std::to_string(10000 + i * step % 1000);
            if (i / 1000 % 2 == 0) {
                record.setInteger(key, i);
                model[key] = i;
            } else if (i >= 3000 || i % 100 != 0) {
                record.erase(key);
                model.erase(key);
            }
            if (i % 500 == 0) {
                expectSame(record, model);
                expectSame(copy, modelOfCopy);
                copy = record;
                modelOfCopy = model;
            }
        }
        expectSame(record, {});
        expectSame(copy, modelOfCopy);
        const Dictionary outer = [&] {
            Dictionary made;
            made.setObject("many", copy);
            return made;
        }();
        expectSame(outer.getObject("many"), modelOfCopy);
        for (int i = 0; i < 2000; ++i)  // some have the hash of a key that is there
            EXPECT_FALSE(copy.hasKey("none " + std::to_string(i)));
    }
}

}  // namespace
}  // namespace NIVUR
