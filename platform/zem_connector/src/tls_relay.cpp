#include "tls_relay.h"

#include <utility>

#include <boost/asio/post.hpp>

#include "library_log.h"

namespace zem_connector {

namespace {

bool Wants(TlsStream::Result result) {
    return result == TlsStream::Result::kWantRead || result == TlsStream::Result::kWantWrite;
}

}  // namespace

TlsRelay::TlsRelay(boost::asio::io_context& context, std::string peer,
                   std::unique_ptr<TlsStream> stream, Client client,
                   std::chrono::milliseconds linger, std::function<void()> ended)
    : mContext(context),
      mPeer(std::move(peer)),
      mStream(std::move(stream)),
      mClient(std::move(client)),
      mEnded(std::move(ended)),
      mLinger(linger),
      mLingerTimer(context) {}

void TlsRelay::Start() {
    boost::system::error_code ignored;
    mClient.non_blocking(true, ignored);
    // A hang-up: the client has closed its socket, not just ended its direction.
    WaitForClient(Client::wait_error, &TlsRelay::OnClientGone);
    ReadClient();
    ReadPeer();
}

void TlsRelay::ReadClient() {
    boost::system::error_code error;
    mUp.begin = 0;
    mUp.end = mClient.read_some(boost::asio::buffer(mUp.bytes), error);
    if (error == boost::asio::error::would_block) {
        WaitForClient(Client::wait_read, &TlsRelay::ReadClient);
    } else if (error) {
        EndPeer();
    } else {
        WritePeer();
    }
}

void TlsRelay::WritePeer() {
    const Result result = mStream->Write(mUp.bytes.data(), mUp.end);
    if (result == Result::kDone) {
        Later(&TlsRelay::ReadClient);
    } else if (Wants(result)) {
        WaitForPeer(result, &TlsRelay::WritePeer);
    } else {
        Log().Warn(mPeer + " takes no more: " + mStream->Detail());
        PeerTakesNoMore();
    }
}

void TlsRelay::EndPeer() {
    const Result result = mStream->EndWriting();
    if (Wants(result)) {
        WaitForPeer(result, &TlsRelay::EndPeer);
        return;
    }
    // Fails if the peer has closed the connection, which needs no handling here.
    EndDirection(mUp);
}

void TlsRelay::PeerTakesNoMore() {
    // What it has sent before can still be read.
    boost::system::error_code ignored;
    mClient.shutdown(Client::shutdown_receive, ignored);
    EndDirection(mUp);
}

void TlsRelay::ReadPeer() {
    mDown.begin = 0;
    mDown.end = mDown.bytes.size();
    const Result result = mStream->Read(mDown.bytes.data(), mDown.end);
    if (result == Result::kDone) {
        WriteClient();
    } else if (Wants(result)) {
        WaitForPeer(result, &TlsRelay::ReadPeer);
    } else if (result == Result::kEnd) {
        boost::system::error_code ignored;
        mClient.shutdown(Client::shutdown_send, ignored);
        EndDirection(mDown);
    } else {
        Log().Warn("The stream from " + mPeer + " may lack its end: " + mStream->Detail());
        End();
    }
}

void TlsRelay::WriteClient() {
    boost::system::error_code error;
    mDown.begin += mClient.write_some(
        boost::asio::buffer(mDown.bytes.data() + mDown.begin, mDown.end - mDown.begin), error);
    if (error == boost::asio::error::would_block) {
        WaitForClient(Client::wait_write, &TlsRelay::WriteClient);
    } else if (error) {
        EndDirection(mDown);
    } else if (mDown.begin < mDown.end) {
        Later(&TlsRelay::WriteClient);
    } else {
        Later(&TlsRelay::ReadPeer);
    }
}

void TlsRelay::OnClientGone() {
    mClientGone = true;
    if (mUp.ended) {
        End();
        return;
    }
    mLingerTimer.expires_after(mLinger);
    mLingerTimer.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
        const auto self = weak.lock();
        if (self && !error && self->mEnded) {
            Log().Warn(self->mPeer + " did not take all that the client had sent");
            self->End();
        }
    });
}

void TlsRelay::EndDirection(Direction& direction) {
    direction.ended = true;
    if (mUp.ended && (mDown.ended || mClientGone)) {
        End();
    }
}

void TlsRelay::End() {
    // The owner releases the relay in this call; the caller's handler still holds a reference.
    const auto ended = std::exchange(mEnded, nullptr);
    if (ended) {
        ended();
    }
}

auto TlsRelay::Resume(Step step) {
    // The step itself reports the error of a wait.
    return [weak = weak_from_this(), step](const boost::system::error_code& error) {
        const auto self = weak.lock();
        if (self && self->mEnded && error != boost::asio::error::operation_aborted) {
            (self.get()->*step)();
        }
    };
}

void TlsRelay::Later(Step step) {
    boost::asio::post(mContext, [resume = Resume(step)] { resume(boost::system::error_code()); });
}

void TlsRelay::WaitForClient(Client::wait_type what, Step step) {
    mClient.async_wait(what, Resume(step));
}

void TlsRelay::WaitForPeer(Result want, Step step) {
    mStream->AsyncWait(want, Resume(step));
}

}  // namespace zem_connector
