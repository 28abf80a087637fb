#include "Platform/State/DumpContext.h"

#include "Platform/Base/UniqueFd.h"
#include "Platform/State/test/StateFixture.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Vela {
namespace {

class DumpContextTest : public StateFixture {};

TEST_F(DumpContextTest, PrintsBehindAnIndent) {
    DumpContext dump;
    EXPECT_EQ(dump.text(), "");
    dump.print(0, "vlanId=%d", 10);
    dump.print(0, " %s\n", "up");
    dump.print(4, "count=%llu\n", 1ull << 40);
    dump.print(2, "%s", "");
    EXPECT_EQ(dump.text(), "vlanId=10 up\n    count=1099511627776\n  ");
    EXPECT_FALSE(dump.failed());
}

TEST_F(DumpContextTest, PrintsLinesOfAnyLength) {
    std::string expected;
    DumpContext dump;
    for (size_t length : {254u, 255u, 256u, 257u, 1000u, 100'000u}) {
        std::string text(length, 'x');
        dump.print(1, "%s\n", text.c_str());
        expected += " " + text + "\n";
    }
    EXPECT_EQ(dump.text(), expected);
}

/// Has children, perhaps itself.
class Node : public Entity {
  public:
    explicit Node(std::string name) : name_(std::move(name)) {}
    const char* typeName() const noexcept override { return "Node"; }
    void dumpState(DumpContext& context, int indent) const override {
        context.print(indent, "Node %s\n", name_.c_str());
        for (const Entity* child : children) {
            context.child(indent + 2, "child", child);
        }
    }
    std::vector<const Entity*> children;

  private:
    std::string name_;
};

TEST_F(DumpContextTest, AChildWritesItself) {
    auto parent = make<Node>("parent");
    auto child = make<Node>("child");
    auto plain = make<Thing>();
    parent->children = {child.get(), plain.get()};
    DumpContext dump;
    dump.child(1, "root", parent.get());
    EXPECT_EQ(dump.text(), " Node parent\n"
                           "   Node child\n"
                           "   Thing\n");
}

TEST_F(DumpContextTest, AMissingChildIsNull) {
    auto parent = make<Node>("parent");
    parent->children = {nullptr, nullptr};
    DumpContext dump;
    dump.child(0, "root", parent.get());
    EXPECT_EQ(dump.text(), "Node parent\n"
                           "  child=NULL\n"
                           "  child=NULL\n");
}

TEST_F(DumpContextTest, ASharedChildIsWrittenOnceAndNamedAfterwards) {
    auto parent = make<Node>("parent");
    auto shared = make<Node>("shared");
    auto other = make<Node>("other");
    other->children = {shared.get()};
    parent->children = {shared.get(), other.get(), shared.get()};
    DumpContext dump;
    dump.child(0, "root", parent.get());
    EXPECT_EQ(dump.text(), "Node parent\n"
                           "  Node shared\n"
                           "  Node other\n"
                           "    child=<Node dumped above>\n"
                           "  child=<Node dumped above>\n");
}

TEST_F(DumpContextTest, CyclesEnd) {
    auto parent = make<Node>("parent");
    auto child = make<Node>("child");
    parent->children = {child.get(), parent.get()};
    child->children = {parent.get(), child.get()};
    DumpContext dump;
    dump.child(0, "root", parent.get());
    EXPECT_EQ(dump.text(), "Node parent\n"
                           "  Node child\n"
                           "    child=<Node dumped above>\n"
                           "    child=<Node dumped above>\n"
                           "  child=<Node dumped above>\n");
}

TEST_F(DumpContextTest, EachDumpStartsAnew) {
    auto node = make<Node>("a");
    for (int i = 0; i < 2; ++i) {
        DumpContext dump;
        dump.child(0, "root", node.get());
        EXPECT_EQ(dump.text(), "Node a\n");
    }
}

struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
        reader = UniqueFd(ends[0]);
        writer = UniqueFd(ends[1]);
    }
    /// What stands in the pipe now.
    std::string read() const {
        std::string all;
        char piece[4096];
        while (true) {
            ssize_t got = ::read(reader.get(), piece, sizeof piece);
            if (got <= 0) {
                return all;
            }
            all.append(piece, static_cast<size_t>(got));
        }
    }
    UniqueFd reader;
    UniqueFd writer;
};

TEST_F(DumpContextTest, WritesTheRestAtFlush) {
    Pipe pipe;
    DumpContext dump(pipe.writer.get());
    dump.print(2, "a\n");
    dump.flush();
    EXPECT_EQ(pipe.read(), "  a\n");
    dump.flush();
    EXPECT_EQ(pipe.read(), "");
    dump.print(0, "b\n");
    dump.flush();
    EXPECT_EQ(pipe.read(), "b\n");
    EXPECT_FALSE(dump.failed());
}

TEST_F(DumpContextTest, WritesTheRestAtItsEndAndLeavesTheDescriptorOpen) {
    Pipe pipe;
    { DumpContext(pipe.writer.get()).print(0, "a\n"); }
    EXPECT_EQ(pipe.read(), "a\n");
    EXPECT_NE(fcntl(pipe.writer.get(), F_GETFD), -1);
}

TEST_F(DumpContextTest, WritesLargePiecesOnTheWay) {
    UniqueFd file(memfd_create("dump", 0));
    auto written = [&] {
        struct stat status {};
        EXPECT_EQ(fstat(file.get(), &status), 0);
        return static_cast<size_t>(status.st_size);
    };
    DumpContext dump(file.get());
    std::string line(1000, 'x');
    std::string expected;
    size_t pieces = 0;
    for (int i = 0; i < 500; ++i) {
        dump.print(0, "%d %s\n", i, line.c_str());
        expected += std::to_string(i) + " " + line + "\n";
        EXPECT_LT(dump.text().size(), 66'000u) << "what was written is not kept";
        pieces += dump.text().empty();
    }
    EXPECT_EQ(pieces, expected.size() / 66'000);
    dump.flush();
    ASSERT_EQ(written(), expected.size());
    std::string got(expected.size(), '\0');
    EXPECT_EQ(pread(file.get(), got.data(), got.size(), 0), static_cast<ssize_t>(got.size()));
    EXPECT_EQ(got, expected);
}

/// Runs `reader` in a child process; the parent's copy of the reading end is closed.
template <class Reader>
pid_t forkReader(Pipe& pipe, Reader reader) {
    pid_t child = fork();
    if (child == 0) {
        pipe.writer.reset();
        fcntl(pipe.reader.get(), F_SETFL, 0);
        _exit(reader(pipe.reader.get()));
    }
    pipe.reader.reset();
    return child;
}

void expectSlowReaderGetsAll(int writerFlags) {
    Pipe pipe;
    fcntl(pipe.writer.get(), F_SETFL, writerFlags);
    // Far more than the pipe holds, taken in small pieces and compared at the end.
    EXPECT_GT(fcntl(pipe.writer.get(), F_SETPIPE_SZ, 1), 0);
    constexpr int lines = 20'000;
    pid_t child = forkReader(pipe, [](int fd) {
        std::string all;
        char piece[100];
        for (ssize_t got; (got = read(fd, piece, sizeof piece)) > 0;) {
            all.append(piece, static_cast<size_t>(got));
        }
        std::string expected;
        for (int i = 0; i < lines; ++i) {
            expected += "line " + std::to_string(i) + "\n";
        }
        return all == expected ? 7 : 1;
    });
    {
        DumpContext dump(pipe.writer.get());
        for (int i = 0; i < lines; ++i) {
            dump.print(0, "line %d\n", i);
        }
        dump.flush();
        EXPECT_FALSE(dump.failed());
    }
    pipe.writer.reset();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(DumpContextTest, WaitsForASlowReader) {
    expectSlowReaderGetsAll(0);
    expectSlowReaderGetsAll(O_NONBLOCK);
}

class BrokenPipeTest : public DumpContextTest {
  protected:
    ~BrokenPipeTest() override { std::signal(SIGPIPE, previous_); }

  private:
    void (*previous_)(int) = std::signal(SIGPIPE, SIG_IGN); // as the host does
};

TEST_F(BrokenPipeTest, AReaderThatIsGoneEndsTheOutput) {
    Pipe pipe;
    pipe.reader.reset();
    DumpContext dump(pipe.writer.get());
    dump.print(0, "a\n");
    EXPECT_FALSE(dump.failed());
    dump.flush();
    EXPECT_TRUE(dump.failed());
    for (int i = 0; i < 100'000; ++i) {
        dump.print(0, "line %d\n", i);
    }
    EXPECT_LT(dump.text().size(), 66'000u) << "nothing piles up";
    EXPECT_TRUE(dump.failed());
}

TEST_F(BrokenPipeTest, AReaderThatGoesWhileTheDumpWaitsForItEndsTheOutput) {
    Pipe pipe;
    pid_t child = forkReader(pipe, [](int fd) {
        char piece[10];
        return read(fd, piece, sizeof piece) == sizeof piece ? 7 : 1;
    });
    {
        DumpContext dump(pipe.writer.get());
        for (int i = 0; i < 100'000; ++i) {
            dump.print(0, "line %d\n", i);
        }
        dump.flush();
        EXPECT_TRUE(dump.failed());
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(DumpContextTest, ADescriptorThatCannotBeWrittenEndsTheOutput) {
    Pipe pipe;
    DumpContext dump(pipe.reader.get());
    dump.print(0, "a\n");
    dump.flush();
    EXPECT_TRUE(dump.failed());
}

} // namespace
} // namespace Vela
