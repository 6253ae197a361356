#include <list>
#include <set>
#include <unistd.h>

#include "test_helpers.h"

#include "orvik/crashreport.h"
#include "orvik/crc32c.h"
#include "orvik/hierarchyobject.h"
#include "orvik/observerobject.h"
#include "orvik/threadservices.h"

namespace orvik {
namespace {

class Node : public HierarchyObjectInterface {
public:
    explicit Node(Int n = 0) : number(n) { ++instances; }
    ~Node() override { --instances; }
    Int number;
    static inline std::atomic<Int> instances = 0;
};

Ref<Node> MakeNode(Int number = 0) { return NewObj<Node>(number).TakeValue(); }

std::vector<Int> NumbersOf(Block<const HierarchyObjectRef> children) {
    std::vector<Int> numbers;
    for (const HierarchyObjectRef& child : children)
        numbers.push_back(dynamic_cast<const Node&>(*child).number);
    return numbers;
}

TEST(Hierarchy, KeepsOrderAndPredecessorsPerBranch) {
    const Ref<Node> root = MakeNode();
    std::vector<Ref<Node>> nodes;
    EXPECT_FALSE(root->GetFirst());
    for (const auto& [branch, after] : {std::pair(2, -1), {2, -1}, {2, 0}, {2, 1}, {4, -1}}) {
        nodes.push_back(MakeNode(Int(nodes.size())));
        ASSERT_TRUE(root->AddChild(branch, nodes.back(), after < 0 ? Ref<Node>() : nodes[size_t(after)]));
    }
    EXPECT_THAT(NumbersOf(root->GetChildren(2)), testing::ElementsAre(0, 2, 1, 3));
    EXPECT_THAT(NumbersOf(root->GetChildren(4)), testing::ElementsAre(4));
    EXPECT_TRUE(root->GetChildren(3).empty() && root->GetChildren(-1).empty() && root->GetChildren(99).empty());
    EXPECT_TRUE(root->GetFirst() == nodes[0] && root->GetFirstChild(4) == nodes[4]);
    EXPECT_TRUE(nodes[4]->GetBranch() == 4 && nodes[4]->GetParent() == root && !nodes[4]->GetNext());
    std::vector<Int> walked;
    for (HierarchyObjectRef node = root->GetFirstChild(2); node; node = node->GetNext())
        walked.push_back(dynamic_cast<const Node&>(*node).number);
    EXPECT_THAT(walked, testing::ElementsAre(0, 2, 1, 3));
    ASSERT_TRUE(root->RemoveChild(nodes[0]));
    EXPECT_EQ(nodes[2]->GetNext(), nodes[1]) << "the places have moved";
    EXPECT_TRUE(!nodes[0]->GetParent() && nodes[0]->GetBranch() == -1);
    ASSERT_TRUE(root->AddChild(4, nodes[0]));
    EXPECT_EQ(nodes[4]->GetNext(), nodes[0]);
}

TEST(Hierarchy, RefusesCyclesAndStrangers) {
    const Ref<Node> root = MakeNode(), child = MakeNode(), grandchild = MakeNode(), stranger = MakeNode();
    ASSERT_TRUE(root->AddChild(0, child));
    ASSERT_TRUE(child->AddChild(0, grandchild));
    const std::pair<const char*, Result<void>> cases[] = {
        {"itself", root->AddChild(0, root)},
        {"parent below child", child->AddChild(0, root)},
        {"root below grandchild", grandchild->AddChild(1, root)},
        {"a second parent", stranger->AddChild(0, grandchild)},
        {"the same again", root->AddChild(0, child)},
        {"null", root->AddChild(0, nullptr)},
        {"negative branch", root->AddChild(-1, stranger)},
        {"absurd branch", root->AddChild(INT64_MAX, stranger)},
        {"unknown predecessor", root->AddChild(0, stranger, grandchild)},
        {"predecessor of another branch", root->AddChild(1, stranger, child)},
        {"remove a stranger", root->RemoveChild(stranger)},
        {"remove a grandchild", root->RemoveChild(grandchild)},
        {"remove null", root->RemoveChild(nullptr)},
    };
    for (const auto& [what, answer] : cases)
        EXPECT_EQ(ErrorIdOf(answer), errorid::kIllegalArgument) << what;
    EXPECT_TRUE(root->GetChildren(0).size() == 1 && child->GetChildren(0).size() == 1 && !stranger->GetParent());
    EXPECT_EQ(ErrorIdOf(HierarchyObjectRef()->AddChild(0, child)), errorid::kNullptr);
}

TEST(Hierarchy, DestroysLongChainsWithoutRecursion) {
    constexpr Int kDepth = 100000;
    {
        Ref<Node> root = MakeNode();
        HierarchyObjectRef last = root;
        for (Int i = 0; i < kDepth; ++i) {
            Ref<Node> next = MakeNode();
            ASSERT_TRUE(last->AddChild(i % 3, next));
            ASSERT_TRUE(last->AddChild(1, MakeNode()));
            last = next;
        }
        EXPECT_EQ(Node::instances, 2 * kDepth + 1);
    }
    EXPECT_EQ(Node::instances, 0);
}

TEST(Hierarchy, ReferencedChildrenSurviveTheirParent) {
    Ref<Node> root = MakeNode();
    const Ref<Node> child = MakeNode(), grandchild = MakeNode();
    ASSERT_TRUE(root->AddChild(0, child));
    ASSERT_TRUE(child->AddChild(0, grandchild));
    root = nullptr;
    EXPECT_TRUE(!child->GetParent() && child->GetBranch() == -1 && !child->GetNext());
    EXPECT_EQ(grandchild->GetParent(), child);
    ASSERT_TRUE(MakeNode()->AddChild(0, child)) << "free to hang elsewhere";
}

TEST(Hierarchy, FailedAllocationsLeaveTheTreeWhole) {
    const Ref<Node> child = MakeNode();
    EXPECT_GE(FailEachAllocation([&]() -> Result<void> {
                  const Ref<Node> root = TRY(NewObj<Node>());
                  Result<void> added = root->AddChild(1, child);
                  EXPECT_EQ(bool(child->GetParent()), bool(added));
                  return added;
              }),
              4);
}

using Event = Observable<Result<void>(Int)>;

TEST(Observable, RunsAllInOrderAndGathersTheirErrors) {
    Event event;
    std::string log;
    const Error failures[] = {nullptr, IllegalStateError("b"), ThreadCancelledError("c"), nullptr,
                              IllegalStateError("e")};
    Int failing = 2;  // so many observers at the front may fail
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(event.AddObserver([&, i](Int value) -> Result<void> {
            log += char('a' + i) + std::to_string(value);
            return i < failing ? failures[i] : Error();
        }));
    }
    EXPECT_EQ(event.Notify(7).GetError().Get(), failures[1].Get()) << "one alone comes back as it is";
    failing = 5;
    const Result<void> all = event.Notify(8);
    EXPECT_EQ(log, "a7b7c7d7e7a8b8c8d8e8");
    EXPECT_EQ(MessageOf(all), "b; c; e");
    EXPECT_EQ(ErrorIdOf(all), errorid::kIllegalState) << "of the first";
    EXPECT_TRUE(all.GetError()->IsKindOf(errorid::kThreadCancelled)) << "of a kind with each";
    EXPECT_FALSE(all.GetError()->IsKindOf(errorid::kIo));
    EXPECT_EQ(all.GetError()->GetCause().Get(), failures[1].Get());
    const auto* gathered = dynamic_cast<const GatheredErrorInterface*>(all.GetError().Get());
    ASSERT_TRUE(gathered && gathered->GetErrors().size() == 3);
    EXPECT_EQ(gathered->GetErrors()[2].Get(), failures[4].Get());
    SetAllocationFault(1, true);
    const Result<void> shortOfMemory = event.Notify(9);
    SetAllocationFault(0);
    EXPECT_EQ(shortOfMemory.GetError().Get(), failures[1].Get()) << "no memory to gather in";
}

TEST(Observable, ObserversMayComeAndGoDuringANotification) {
    Event event;
    std::string log;
    Int numbers[4] = {};
    const auto add = [&](char name, auto work) {
        return event.AddObserver([&log, name, work](Int) { return log += name, work(), Result<void>(); }).TakeValue();
    };
    numbers[0] = add('a', [] {});
    numbers[1] = add('b', [&] {
        event.RemoveObserver(numbers[0]);  // one that has run
        event.RemoveObserver(numbers[1]);  // itself
        (void)add('e', [] {});
    });
    add('c', [&] { event.RemoveObserver(numbers[3]); });  // one that has not
    numbers[3] = add('d', [] {});
    ASSERT_TRUE(event.Notify(0));
    EXPECT_EQ(log, "abc");
    ASSERT_TRUE(event.Notify(0));
    EXPECT_EQ(log, "abcce");
    EXPECT_EQ(event.GetObserverCount(), 2);
}

TEST(Delegate, CopiesAndMovesSmallAndLargeCallables) {
    auto counted = std::make_shared<int>(10);
    Delegate<int(int)> small = [counted](int x) { return *counted + x; };
    Delegate<int(int)> copy = small, moved = std::move(small);
    EXPECT_FALSE(small);
    EXPECT_EQ(counted.use_count(), 3);
    EXPECT_EQ(moved(1) + copy(2), 23);
    copy = moved = nullptr;
    EXPECT_EQ(counted.use_count(), 1);
    const std::array<Int, 20> many{1, 2, 3};
    const auto large = [many](int i) { return int(many[size_t(i)]); };
    Delegate<int(int)> shared = Delegate<int(int)>::Create(large).TakeValue();
    const Delegate<int(int)> twin = shared;
    shared = nullptr;
    EXPECT_EQ(twin(2), 3);
    EXPECT_EQ(FailEachAllocation([&] { return Delegate<int(int)>::Create(large); }), 1);
}

TEST(Cancel, ScopesNestAndBelongToTheirThread) {
    CancelToken outer, inner;
    {
        const CancelScope outerScope(outer);
        {
            const CancelScope innerScope(inner);
            EXPECT_FALSE(IsCurrentThreadCancelled());
            outer.Cancel();
            EXPECT_TRUE(IsCurrentThreadCancelled()) << "an outer request reaches inner work";
            outer.Reset();
            inner.Cancel();
            EXPECT_TRUE(IsCurrentThreadCancelled());
        }
        EXPECT_FALSE(IsCurrentThreadCancelled()) << "an inner request ends with its scope";
        std::thread([&] {
            outer.Cancel();
            EXPECT_FALSE(IsCurrentThreadCancelled()) << "attached to the other thread";
        }).join();
        EXPECT_TRUE(IsCurrentThreadCancelled());
    }
    EXPECT_FALSE(IsCurrentThreadCancelled());
}

TEST(Crc32c, AgreesWithKnownVectorsInAnyPieces) {
    const std::pair<std::string, uint32_t> cases[] = {
        {"", 0},
        {"123456789", 0xE3069283},
        {std::string(32, 0), 0x8A9136AA},
        {std::string(32, '\xFF'), 0x62A8AB43},
    };
    for (const auto& [all, crc] : cases) {
        EXPECT_EQ(ComputeCrc32c(AsBlock(all)), crc);
        for (size_t cut = 0; cut <= all.size(); ++cut) {
            const std::string_view bytes(all);
            EXPECT_EQ(ComputeCrc32c(AsBlock(bytes.substr(cut)), ComputeCrc32c(AsBlock(bytes.substr(0, cut)))), crc);
        }
    }
}

std::string ReportedProperties() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    WriteCrashReportProperties(ends[1]);
    close(ends[1]);
    std::string text(65536, 0);
    const ssize_t count = read(ends[0], text.data(), text.size());
    close(ends[0]);
    text.resize(size_t(std::max<ssize_t>(count, 0)));
    return text;
}

TEST(CrashReport, ShowsPropertiesWhileTheyLiveAndCutsLongOnes) {
    EXPECT_EQ(ReportedProperties(), "");
    {
        const CrashReportProperty url("Url", "/tmp/a\nb.png");
        {
            const CrashReportProperty time("Time", "1.5 s");
            EXPECT_EQ(ReportedProperties(), "Url: /tmp/a b.png\nTime: 1.5 s\n");
        }
        EXPECT_EQ(ReportedProperties(), "Url: /tmp/a b.png\n");
    }
    {
        const CrashReportProperty cut("Long", std::string(254, 'x') + "\xC3\xA4");
        EXPECT_EQ(ReportedProperties(), "Long: " + std::string(254, 'x') + "\n");
    }
    {
        std::list<CrashReportProperty> many;
        for (int i = 0; i < 100; ++i)
            many.emplace_back("n", String("v"));
        EXPECT_EQ(GetCrashReportPropertyCount(), 64);
    }
    EXPECT_EQ(GetCrashReportPropertyCount(), 0);
}

TEST(CrashReport, ReadersNeverSeeATornValue) {
    const std::string a = std::string(200, 'a'), b = std::string(200, 'b');
    std::set<std::string> seen;
    std::jthread writer([&](std::stop_token stop) {
        for (int i = 0; !stop.stop_requested(); ++i)
            const CrashReportProperty property("p", String(i % 2 ? a : b));
    });
    for (int i = 0; i < 2000 || (seen.size() < 2 && i < 1000000); ++i) {
        if (const std::string text = ReportedProperties(); !text.empty())
            seen.insert(text);
    }
    EXPECT_EQ(seen, (std::set<std::string>{"p: " + a + "\n", "p: " + b + "\n"}));
}

TEST(SpinLock, ExcludesAndYields) {
    static std::atomic<int> yields;
    yields = 0;
    for (unsigned spins = 0; spins < 64; ++spins)
        SpinBackoff(spins, [] { ++yields; });
    EXPECT_EQ(yields, 4) << "after every 16th try";
    SpinLock lock;
    int counter = 0;
    RunAtOnce(4, [&] {
        for (int i = 0; i < 20000; ++i) {
            const std::lock_guard guard(lock);
            ++counter;
        }
    });
    EXPECT_EQ(counter, 80000);
}

}  // namespace
}  // namespace orvik
