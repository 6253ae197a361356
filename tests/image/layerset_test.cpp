#include "image/layers/layerset_impl.h"
#include "support/described.h"
#include "support/faults.h"
#include "support/module_fixture.h"

namespace orvik {
namespace {

HashSet<String> Paths(std::initializer_list<const char*> texts) {
    HashSet<String> paths;
    for (const char* text : texts)
        EXPECT_TRUE(paths.Insert(text));
    return paths;
}

LayerSet MakeSet(std::initializer_list<const char*> paths, const char* image = "",
                 LAYERSETMODE mode = LAYERSETMODE::LAYERS, Bool calculateAlpha = false) {
    LayerSet set;
    EXPECT_TRUE(set.SetSelectedLayers(Paths(paths)));
    EXPECT_TRUE(set.SetSelectedImage(image));
    EXPECT_TRUE(set.SetMode(mode));
    EXPECT_TRUE(set.SetCalculateAlpha(calculateAlpha));
    return set;
}

using LayerSetTest = ModuleFixture;

TEST_F(LayerSetTest, EqualityAndHashGoByValue) {
    const LayerSet sets[] = {
        MakeSet({"A", "B\\C", "D"}),
        MakeSet({"A", "B\\C"}),
        MakeSet({"a", "B\\C", "D"}),  // case counts
        MakeSet({"A", "B", "C", "D"}),
        MakeSet({}),
        MakeSet({""}),
        MakeSet({"\\"}),
        MakeSet({"A", "B\\C", "D"}, "#2"),
        MakeSet({"A", "B\\C", "D"}, "", LAYERSETMODE::ALPHAS),
        MakeSet({"A", "B\\C", "D"}, "", LAYERSETMODE::LAYERS, true),
    };
    for (size_t i = 0; i < std::size(sets); ++i) {
        for (size_t k = 0; k < std::size(sets); ++k) {
            EXPECT_EQ(sets[i] == sets[k], i == k) << i << " and " << k;
            EXPECT_EQ(sets[i].GetHashCode() == sets[k].GetHashCode(), i == k) << i << " and " << k;
        }
    }
    for (const LayerSet& other : {MakeSet({"D", "B\\C", "A"}), MakeSet({"B\\C", "A", "D", "A"})}) {
        EXPECT_TRUE(other == sets[0]);
        EXPECT_EQ(other.GetHashCode(), sets[0].GetHashCode());
    }
}

TEST_F(LayerSetTest, CopiesAreIndependentAndModesAreChecked) {
    const LayerSet null, original = MakeSet({"A"});
    EXPECT_TRUE(null->GetSelectedLayers().IsEmpty());
    EXPECT_FALSE(null == MakeSet({}));
    LayerSet copy = original;
    EXPECT_TRUE(copy == original);
    ASSERT_TRUE(copy.SetMode(LAYERSETMODE::DISABLED));
    EXPECT_EQ(original->GetMode(), LAYERSETMODE::LAYERS);
    EXPECT_TRUE(copy->GetSelectedLayers().Contains("A"));
    for (const int mode : {-1, 5})
        EXPECT_FALSE(copy.SetMode(LAYERSETMODE(mode)));
    EXPECT_EQ(copy->GetMode(), LAYERSETMODE::DISABLED);
}

TEST_F(LayerSetTest, SerialisesItsFieldsByName) {
    LayerSet set = MakeSet({"Folder\\Layer", "", "\xC3\x84"}, "#3", LAYERSETMODE::LAYERMASKS, true);
    LayerSet sameOtherOrder = MakeSet({"\xC3\x84", "Folder\\Layer", ""}, "#3", LAYERSETMODE::LAYERMASKS, true);
    const MemoryFileRef file = Written(set), fileOfSame = Written(sameOtherOrder);
    const Block<const std::byte> bytes = BytesOf(file);
    EXPECT_TRUE(std::ranges::equal(bytes, BytesOf(fileOfSame)));
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    size_t at = 0;  // each field behind the one before
    for (const std::string name : {"_layers", "_selectedImage", "_layersetMode", "_calculateAlpha"})
        ASSERT_NE(at = text.find(char(name.size()) + name, at), std::string_view::npos) << name;

    LayerSet back;
    ASSERT_TRUE(ReadFrom(back, bytes));
    EXPECT_TRUE(back == set);

    // Cut anywhere, it is an error and changes nothing.
    LayerSet kept = MakeSet({"kept"});
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(ReadFrom(kept, bytes.first(length))) << length;
    EXPECT_TRUE(kept == MakeSet({"kept"}));
}

TEST_F(LayerSetTest, EveryFailedAllocationLeavesTheSetAsItWas) {
    const LayerSet before = MakeSet({"A", "B", "C"}), after = MakeSet({"4", "3", "2", "1"});
    const HashSet<String> paths = Paths({"1", "2", "3", "4"});
    AllocationFaults faults;
    while (faults.Next()) {
        LayerSet set = before;
        const Result<void> done = faults.Run([&] { return set.SetSelectedLayers(paths); });
        EXPECT_TRUE(set == (done ? after : before));
    }
    EXPECT_GT(faults.GetErrorCount(), 4);
    EXPECT_TRUE(before == MakeSet({"A", "B", "C"}));
}

}  // namespace
}  // namespace orvik
