#include "Utilities/Watch/HttpSession.h"

#include "Utilities/Watch/Clock.h"
#include "Utilities/Watch/EventStream.h"
#include "Utilities/Watch/HttpRules.h"
#include "Utilities/Watch/HttpServer.h"
#include "Utilities/Watch/Metrics.h"
#include "Utilities/Watch/PageFiles.h"

#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>

#include <charconv>
#include <chrono>
#include <utility>

namespace watch {

namespace http = boost::beast::http;

namespace {

/// For a whole request to come, and for its response to be taken.
constexpr std::chrono::seconds Patience{15};

constexpr std::pair<std::string_view, std::string_view> Headers[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
     "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cache-Control", "no-cache"},
};

std::uint64_t NumberOr0(std::string_view text)
{
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

std::string_view View(boost::beast::string_view text)
{
    return {text.data(), text.size()};
}

boost::beast::string_view Beast(std::string_view text)
{
    return {text.data(), text.size()};
}

} // namespace

std::string SecurityHeaders()
{
    std::string text;
    for (const auto& [name, value] : Headers)
        text += std::string(name) + ": " + std::string(value) + "\r\n";
    return text;
}

HttpSession::HttpSession(boost::asio::ip::tcp::socket socket, HttpServer& server)
    : mStream(std::move(socket)), mServer(server), mPlace(server.TakePlace())
{}

void HttpSession::Read()
{
    mParser.emplace();
    mParser->header_limit(MaxHeader);
    mParser->body_limit(0);
    mStream.expires_after(Patience);
    http::async_read(mStream, mBuffer, *mParser,
                     [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
                         if (!error) {
                             self->OnRequest();
                         } else if (error == http::error::header_limit) {
                             self->mParser->get().keep_alive(false);
                             self->Respond(Status::request_header_fields_too_large, "text/plain", "too long\n");
                         } else if (error == http::error::body_limit) {
                             self->mParser->get().keep_alive(false);
                             self->Respond(Status::payload_too_large, "text/plain", "OrbWatch only shows.\n");
                         } else {
                             self->Close();
                         }
                     });
}

void HttpSession::OnRequest()
{
    mServer.CountRequest();
    const auto& request = mParser->get();
    boost::system::error_code error;
    const auto local = mStream.socket().local_endpoint(error);
    if (error) {
        Close();
    } else if (!IsKnownHost(View(request[http::field::host]), local.address(), mServer.HostNames())) {
        Respond(Status::misdirected_request, "text/plain", "This is not a host that OrbWatch knows; see --host.\n");
    } else if (request.method() != http::verb::get && request.method() != http::verb::head) {
        Respond(Status::method_not_allowed, "text/plain", "OrbWatch only shows.\n");
    } else {
        Answer();
    }
}

void HttpSession::Answer()
{
    const auto& request = mParser->get();
    const std::string_view path = PathOf(View(request.target()));
    const bool isHead = request.method() == http::verb::head;
    if (path == "/events" && !isHead) {
        StartEvents();
    } else if (path == "/api/state") {
        mServer.GetPoller().WhenFresh([self = shared_from_this()] {
            self->Respond(Status::ok, "application/json", self->mServer.GetPicture().Json(NowMs()));
        });
    } else if (path == "/metrics") {
        mServer.GetPoller().WhenFresh([self = shared_from_this()] {
            self->Respond(Status::ok, "text/plain; version=0.0.4; charset=utf-8",
                          MetricsText(self->mServer.GetPicture(), self->mServer.Figures(), NowMs()));
        });
    } else if (path == "/healthz") {
        RespondHealth();
    } else {
        RespondFile(path);
    }
}

void HttpSession::StartEvents()
{
    const std::uint64_t seen = NumberOr0(View(mParser->get()["Last-Event-ID"]));
    if (mServer.Figures().viewers >= HttpServer::MaxViewers) {
        Respond(Status::service_unavailable, "text/plain", "Too many pages are open.\n");
        return;
    }
    const auto events = std::make_shared<EventStream>(std::move(mStream), mServer, std::move(mPlace), seen);
    mServer.AddViewer(events);
    events->Start();
}

void HttpSession::RespondHealth()
{
    const Contact contact = mServer.GetPicture().GetContact();
    const bool isLive = contact == Contact::Live;
    Respond(isLive ? Status::ok : Status::service_unavailable, "text/plain",
            isLive ? "ok\n" : "module " + std::string(ContactName(contact)) + "\n");
}

void HttpSession::RespondFile(std::string_view path)
{
    const Asset* asset = FindAsset(path);
    if (!asset) {
        Respond(Status::not_found, "text/plain", "There is nothing here.\n");
        return;
    }
    if (View(mParser->get()[http::field::if_none_match]) == asset->tag) {
        Respond(Status::not_modified, asset->type, {});
        return;
    }
    http::response<http::span_body<const char>> response(Status::ok, mParser->get().version());
    response.set(http::field::content_type, Beast(asset->type));
    response.set(http::field::etag, Beast(asset->tag));
    response.body() = {asset->body.data(), asset->body.size()};
    Send(std::move(response));
}

void HttpSession::Respond(Status status, std::string_view type, std::string body)
{
    http::response<http::string_body> response(status, mParser->get().version());
    response.set(http::field::content_type, Beast(type));
    if (status == Status::method_not_allowed) response.set(http::field::allow, "GET, HEAD");
    response.body() = std::move(body);
    Send(std::move(response));
}

template <class Response>
void HttpSession::Send(Response response)
{
    for (const auto& [name, value] : Headers)
        response.set(Beast(name), Beast(value));
    response.keep_alive(mParser->get().keep_alive());
    response.prepare_payload();
    const auto message = std::make_shared<Response>(std::move(response));
    mStream.expires_after(Patience);
    const auto done = [self = shared_from_this(), message](const boost::system::error_code& error, std::size_t) {
        if (error || message->need_eof()) {
            self->Close();
        } else {
            self->Read();
        }
    };
    if (mParser->get().method() == http::verb::head) {
        // The length of the response to GET.
        const auto serializer = std::make_shared<http::response_serializer<typename Response::body_type>>(*message);
        http::async_write_header(
            mStream, *serializer,
            [done, serializer](const boost::system::error_code& error, std::size_t size) { done(error, size); });
        return;
    }
    http::async_write(mStream, *message, done);
}

void HttpSession::Close()
{
    boost::system::error_code ignored;
    mStream.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
    mStream.socket().close(ignored);
}

} // namespace watch
