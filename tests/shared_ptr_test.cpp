#include <gtest/gtest.h>
#include <nivur/nivur.h>

namespace NIVUR {
namespace {

static_assert(std::is_convertible_v<Runnable*, SharedPtr<Runnable>> &&
              std::is_convertible_v<BufferList_Config, BufferList> &&
              std::is_convertible_v<std::string, Event> &&
              std::is_convertible_v<unsigned long long, Date>);

struct Node {
    explicit Node(int& counter) : alive(counter) { ++alive; }
    ~Node() { --alive; }
    int& alive;
    SharedPtr<Node> next;
};

struct CountingDisposer : PtrDisposer<Node> {
    void dispose(Node* node) override {
        ++calls;
        last = node;
    }
    int calls = 0;
    Node* last = nullptr;
};

TEST(SharedPtr, LastReferenceDisposesOnce) {
    SharedPtr<Runnable>(makeRunnable([] {}))->run();  // uses the default disposer in the library
    int alive = 0;
    {
        SharedPtr<Node> a(new Node(alive));
        SharedPtr<Node> b(a);
        SharedPtr<Node> c;
        EXPECT_FALSE(c);
        EXPECT_TRUE(a == b);
        EXPECT_TRUE(a != c);
        c = b;
        const SharedPtr<Node>& self = c;
        c = self;
        a = SharedPtr<Node>(std::move(b));
        EXPECT_EQ(b.get(), nullptr);
        a.reset();
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(&c->alive, &(*c).alive);
    }
    EXPECT_EQ(alive, 0);
}

TEST(SharedPtr, AssignmentFromWhatItsOwnReleaseDestroysIsSafe) {
    int alive = 0;
    SharedPtr<Node> head(new Node(alive));
    for (int i = 0; i < 3; ++i) {
        SharedPtr<Node> node(new Node(alive));
        node->next = head;
        head = node;
    }
    for (int left = 4; head; --left) {
        EXPECT_EQ(alive, left);
        head = head->next;
    }
    EXPECT_EQ(alive, 0);
}

TEST(SharedPtr, CustomDisposerIsCalledOnceAlsoForNull) {
    int alive = 0;
    Node node(alive);
    CountingDisposer disposer;
    {
        const SharedPtr<Node> a(&node, &disposer);
        const SharedPtr<Node> b(a);
    }
    EXPECT_EQ(disposer.calls, 1);
    EXPECT_EQ(disposer.last, &node);
    { const SharedPtr<Node> null(nullptr, &disposer); }
    EXPECT_EQ(disposer.calls, 2);
    EXPECT_EQ(disposer.last, nullptr);
}

}  // namespace
}  // namespace NIVUR
