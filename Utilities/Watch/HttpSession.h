#pragma once

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/span_body.hpp>
#include <boost/beast/http/string_body.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace watch {

class HttpServer;

/// One connection of a browser or a scraper: requests one after the other, until it closes, breaks a limit, or turns
/// into an event stream.
class HttpSession : public std::enable_shared_from_this<HttpSession>
{
public:
    static constexpr std::uint32_t MaxHeader = 8 * 1024;

    HttpSession(boost::asio::ip::tcp::socket socket, HttpServer& server);

    void Start() { Read(); }

private:
    using Status = boost::beast::http::status;

    void Read();
    void OnRequest();
    void Answer();
    void StartEvents();
    void RespondFile(std::string_view path);
    void RespondHealth();
    void Respond(Status status, std::string_view type, std::string body);
    template <class Response>
    void Send(Response response);
    void Close();

    boost::beast::tcp_stream mStream;
    HttpServer& mServer;
    std::shared_ptr<void> mPlace;
    boost::beast::flat_buffer mBuffer{MaxHeader};
    std::optional<boost::beast::http::request_parser<boost::beast::http::empty_body>> mParser;
};

/// What every response carries: nothing from elsewhere, nothing inline, no frame around it.
std::string SecurityHeaders();

} // namespace watch
