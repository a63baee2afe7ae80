#include "Utilities/Watch/Poller.h"

#include <algorithm>
#include <utility>

namespace watch {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds Spacing{1000};
/// After a line of the log: at once, and for what follows from it.
constexpr milliseconds HintDelays[] = {milliseconds(0), milliseconds(1000), milliseconds(3000)};
/// How long after the last line of the log a pending answer is awaited.
constexpr milliseconds PendingPatience{60000};
constexpr milliseconds GiveUp{30000};
constexpr milliseconds FreshPatience{900};
/// Without Information no log line announces a change.
constexpr milliseconds BlindRefresh{2000};
/// A shorter result is complete in the log.
constexpr std::size_t FitsMessage = 3900;
constexpr std::size_t FirstOfClocks = 5;
static_assert(PictureCommands[FirstOfClocks] == ShellCommand::Clocks);
static_assert(!IsLogged(PictureCommands.back()));

} // namespace

Poller::Poller(boost::asio::io_context& context, boost::asio::ip::tcp::endpoint shell, Picture& picture,
               Settings settings)
    : mContext(context),
      mPicture(picture),
      mSettings(settings),
      mLink(context, std::move(shell),
            {[this] {
                 if (mPicture.GetContact() != Contact::Away) mPicture.OnContact(Contact::Connecting, NowMs());
             },
             [this] { OnReady(); },
             [this] {
                 mPicture.OnContact(Contact::Silent, NowMs());
                 mChanged();
             },
             [this] { OnLost(); }, [this](LogMessage message) { OnMessage(std::move(message)); },
             [this](const Reply& reply) { OnReply(reply); }}),
      mRoundTimer(context),
      mReplyTimer(context),
      mWaitTimer(context),
      mBudget(settings.logBurst)
{}

void Poller::OnLook()
{
    mLookedUntil = Clock::now() + mSettings.interest;
    Schedule();
}

std::shared_ptr<void> Poller::Watch()
{
    auto token = mWatchers.lock();
    if (!token) {
        token = std::make_shared<char>();
        mWatchers = token;
    }
    mOpened = Clock::now();
    Schedule();
    return token;
}

bool Poller::IsLookedAt() const
{
    return !mWatchers.expired() || Clock::now() < mLookedUntil;
}

bool Poller::IsFresh() const
{
    if (!mLink.IsReady() || mPicture.GetContact() != Contact::Live) return true;
    const auto next = NextPicture();
    return (!mRound || mRound->clocksOnly) && next && *next > Clock::now();
}

void Poller::WhenFresh(std::function<void()> callback)
{
    OnLook();
    if (IsFresh()) {
        callback();
        return;
    }
    if (mWaiters.empty()) {
        mWaitTimer.expires_after(FreshPatience);
        mWaitTimer.async_wait([this](const boost::system::error_code& error) {
            if (!error) CallWaiters();
        });
    }
    mWaiters.push_back(std::move(callback));
}

void Poller::CallWaiters()
{
    mWaitTimer.cancel();
    for (const auto& waiter : std::exchange(mWaiters, {}))
        waiter();
}

void Poller::OnReady()
{
    mPicture.OnContact(Contact::Live, NowMs());
    mPicture.OnVersion(mLink.Session().Version());
    mLastPicture.reset();
    mLastRound.reset();
    mChanged();
    // The session is still processing its input.
    boost::asio::post(mContext, [this] { Schedule(); });
}

void Poller::OnLost()
{
    mRound.reset();
    mProbing = false;
    mRoundTimer.cancel();
    mReplyTimer.cancel();
    mPicture.OnContact(Contact::Away, NowMs());
    CallWaiters();
    mChanged();
}

void Poller::OnMessage(LogMessage message)
{
    mPicture.OnMessage(std::move(message), NowMs());
    mLastHint = Clock::now();
    mChanged();
    Schedule();
}

void Poller::Refill()
{
    const Clock::time_point now = Clock::now();
    const std::chrono::duration<double> passed = now - mRefilled;
    mRefilled = now;
    mBudget = std::min(mSettings.logBurst, mBudget + passed.count() * mSettings.logRate);
}

/// When the next picture is due; none without an open page or a recent scrape.
std::optional<Clock::time_point> Poller::NextPicture() const
{
    if (!IsLookedAt()) return std::nullopt;
    if (!mLastPicture) return Clock::now();
    Clock::time_point next = *mLastPicture + (mPicture.IsInformationOn() ? mSettings.refresh : BlindRefresh);
    for (const milliseconds delay : HintDelays)
        if (mLastHint + delay > *mLastPicture) next = std::min(next, mLastHint + delay);
    if (mPicture.AwaitsAnswer() && *mLastPicture < mLastHint + PendingPatience) next = *mLastPicture;
    return std::max(next, *mLastRound + Spacing);
}

/// When the clocks are due; none while no page is open.
std::optional<Clock::time_point> Poller::NextClocks() const
{
    if (mWatchers.expired() || !mLastRound) return std::nullopt;
    return *mLastRound + (Clock::now() - mOpened < mSettings.attention ? Spacing : mSettings.clocks);
}

void Poller::Schedule()
{
    if (!mLink.IsReady() || mRound) return;
    auto next = NextPicture();
    if (!next) {
        mRoundTimer.cancel();
        return;
    }
    const auto clocks = NextClocks();
    const bool clocksOnly = clocks && *clocks < *next;
    if (clocksOnly) next = clocks;
    Refill();
    // In the past while there is something left.
    const std::chrono::duration<double> wait(-mBudget / mSettings.logRate);
    next = std::max(*next, Clock::now() + std::chrono::duration_cast<Clock::duration>(wait));
    mPicture.OnSparing(mBudget < 0);
    mRoundTimer.expires_at(*next);
    mRoundTimer.async_wait([this, clocksOnly](const boost::system::error_code& error) {
        if (!error) StartRound(clocksOnly);
    });
}

void Poller::StartRound(bool clocksOnly)
{
    if (mRound || !mLink.IsReady()) return;
    // The last page may have been closed by now.
    if (!IsLookedAt()) return;
    mRound = Round{clocksOnly, clocksOnly ? FirstOfClocks : 0};
    mLastRound = Clock::now();
    if (!clocksOnly) mLastPicture = mLastRound;
    AskNext();
}

void Poller::AskNext()
{
    if (mRound->next == PictureCommands.size()) {
        EndRound();
        return;
    }
    while (mRound->directOnly && IsLogged(PictureCommands[mRound->next]))
        ++mRound->next;
    const ShellCommand command = PictureCommands[mRound->next];
    if (mRound->directOnly || mLong.count(command) != 0) {
        mLink.Session().AskWhole(command);
    } else {
        mLink.Session().Ask(command);
    }
    AwaitReply(mSettings.replyPatience);
}

void Poller::AwaitReply(milliseconds patience)
{
    mReplyTimer.expires_after(patience);
    mReplyTimer.async_wait([this](const boost::system::error_code& error) {
        if (!error) OnNoReply();
    });
}

void Poller::OnReply(const Reply& reply)
{
    mReplyTimer.cancel();
    mPicture.OnContact(Contact::Live, NowMs());
    if (!mRound) return;
    mRound->loggedBytes += reply.loggedBytes;
    if (std::exchange(mProbing, false)) {
        // It answers directly, but not through the log.
        mRound->directOnly = true;
        mPicture.OnInformation(false);
    } else if (!mRound->directOnly) {
        mPicture.OnInformation(true);
    }
    if (reply.cut) {
        mLong.insert(reply.command);
        mPicture.OnLong(reply.command, true);
        boost::asio::post(mContext, [this] {
            if (mRound) AskNext();
        });
        return;
    }
    if (reply.result.size() < FitsMessage) {
        mLong.erase(reply.command);
        mPicture.OnLong(reply.command, false);
    }
    if (reply.command == PictureCommands[mRound->next]) {
        mPicture.OnReply(reply);
        ++mRound->next;
    }
    mChanged();
    boost::asio::post(mContext, [this] {
        if (mRound) AskNext();
    });
}

void Poller::OnNoReply()
{
    if (!mRound) return;
    const bool wasDirect = mRound->directOnly || mProbing || mLong.count(PictureCommands[mRound->next]) != 0;
    if (!wasDirect) {
        mProbing = true;
        mLink.Session().AskWhole(ShellCommand::ActiveClock);
        AwaitReply(mSettings.silencePatience);
        return;
    }
    if (mPicture.GetContact() == Contact::Silent) {
        mLink.Drop();
        return;
    }
    mPicture.OnContact(Contact::Silent, NowMs());
    CallWaiters();
    mChanged();
    AwaitReply(GiveUp);
}

void Poller::EndRound()
{
    Refill();
    mBudget -= static_cast<double>(mRound->loggedBytes);
    const bool clocksOnly = mRound->clocksOnly;
    mRound.reset();
    if (!clocksOnly) {
        mPicture.OnRound(NowMs());
        CallWaiters();
    }
    mChanged();
    Schedule();
}

} // namespace watch
