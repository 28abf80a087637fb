#include "Host/SignalDescriptor.h"

#include "Testing/CoreFixture.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace Host {
namespace {

class SignalDescriptorTest : public Testing::CoreFixture {
  protected:
    SignalDescriptorTest() {
        pthread_sigmask(SIG_SETMASK, nullptr, &before_);
        pipeIgnoredBefore_ = pipeIgnored();
        signals_ = Vela::make<SignalDescriptor>(
            scheduler(), [this] { seen_ += 's'; },
            [this] {
                seen_ += 'r';
                if (endOnReload_) {
                    signals_.reset();
                }
            });
    }

    static bool blocked(int signal) {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        return sigismember(&mask, signal) == 1;
    }
    static bool pipeIgnored() {
        struct sigaction action {};
        sigaction(SIGPIPE, nullptr, &action);
        return action.sa_handler == SIG_IGN;
    }

    sigset_t before_;
    bool pipeIgnoredBefore_;
    std::string seen_;
    bool endOnReload_ = false;
    Vela::Owned<SignalDescriptor> signals_;
};

TEST_F(SignalDescriptorTest, CallsFromTheLoop) {
    raise(SIGTERM);
    EXPECT_EQ(seen_, "");
    runUntilIdle();
    EXPECT_EQ(seen_, "s");
    raise(SIGHUP);
    runUntilIdle();
    EXPECT_EQ(seen_, "sr");
    raise(SIGINT);
    runUntilIdle();
    EXPECT_EQ(seen_, "srs");
    EXPECT_FALSE(turn());
}

TEST_F(SignalDescriptorTest, SeveralAtOnceAreAllSeen) {
    raise(SIGHUP);
    raise(SIGTERM);
    raise(SIGINT);
    runUntilIdle();
    EXPECT_EQ(seen_.size(), 3u);
    EXPECT_EQ(std::count(seen_.begin(), seen_.end(), 'r'), 1);
}

TEST_F(SignalDescriptorTest, OneOfAKindIsSeenOnceHoweverOftenItCame) {
    raise(SIGHUP);
    raise(SIGHUP);
    runUntilIdle();
    EXPECT_EQ(seen_, "r");
}

TEST_F(SignalDescriptorTest, ABrokenPipeIsAnErrorAndNoDeath) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
    runUntilIdle();
    EXPECT_EQ(seen_, "");
}

TEST_F(SignalDescriptorTest, RestoresWhatItChanged) {
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) {
        EXPECT_TRUE(blocked(signal)) << signal;
    }
    EXPECT_FALSE(blocked(SIGUSR1));
    EXPECT_TRUE(pipeIgnored());
    signals_.reset();
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) {
        EXPECT_EQ(blocked(signal), sigismember(&before_, signal) == 1) << signal;
    }
    EXPECT_EQ(pipeIgnored(), pipeIgnoredBefore_);
}

TEST_F(SignalDescriptorTest, MayBeDestroyedByItsCallback) {
    endOnReload_ = true;
    raise(SIGHUP);
    runUntilIdle();
    EXPECT_EQ(seen_, "r");
    EXPECT_FALSE(signals_);
}

TEST_F(SignalDescriptorTest, AChildDiesOfSignalsAgain) {
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) {
        pid_t pid = fork();
        if (pid == 0) {
            SignalDescriptor::resetForChild();
            raise(signal);
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << signal;
    }
    runUntilIdle();
    EXPECT_EQ(seen_, "") << "what a child does is no affair of its parent";
}

} // namespace
} // namespace Host
