// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/HttpGet.h"

#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

#include <curl/curl.h>

#include "protocol/BlockedSigpipe.h"
#include "protocol/HostLookup.h"
#include "protocol/SocketPlatform.h"

namespace upnp {

namespace {

using std::chrono::steady_clock;

/** Initialised once for each load of the module and never cleaned up. libcurl counts its initialisations, but an
    application that leaves that to its first transfer is not counted; a clean-up when the module is unloaded would then
    end the library under the application's transfers. Without it only a counter remains. */
bool curlIsReady()
{
    static const bool ready = ::curl_global_init (CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return ready;
}

template <auto release>
struct Releaser
{
    template <typename Object>
    void operator() (Object* object) const
    {
        release (object);
    }
};

using EasyHandle = std::unique_ptr<CURL, Releaser<curl_easy_cleanup>>;
using MultiHandle = std::unique_ptr<CURLM, Releaser<curl_multi_cleanup>>;
using List = std::unique_ptr<curl_slist, Releaser<curl_slist_free_all>>;
using Text = std::unique_ptr<char, Releaser<curl_free>>;

/** An absolute URL in its parts. */
class ParsedUrl
{
public:
    explicit ParsedUrl (const std::string& url) : handle (::curl_url())
    {
        valid = handle != nullptr
                && ::curl_url_set (handle.get(), CURLUPART_URL, url.c_str(), CURLU_URLENCODE) == CURLUE_OK;
    }

    bool isHttp() const
    {
        const auto scheme = valid ? part (CURLUPART_SCHEME) : std::string();
        return scheme == "http" || scheme == "https";
    }

    std::string host() const { return part (CURLUPART_HOST); }
    std::string port() const { return part (CURLUPART_PORT, CURLU_DEFAULT_PORT); }
    std::string text() const { return part (CURLUPART_URL); }

    /** Goes where a link in the document at this URL goes. */
    bool follow (const std::string& link)
    {
        valid = valid && ::curl_url_set (handle.get(), CURLUPART_URL, link.c_str(), CURLU_URLENCODE) == CURLUE_OK;
        return valid;
    }

private:
    std::string part (CURLUPart which, unsigned flags = 0) const
    {
        char* text = nullptr;

        if (::curl_url_get (handle.get(), which, &text, flags) != CURLUE_OK)
            return {};

        return Text (text).get();
    }

    std::unique_ptr<CURLU, Releaser<curl_url_cleanup>> handle;
    bool valid = false;
};

/** @param address  of a peer, as the system writes it */
bool isLoopback (std::string_view address)
{
    constexpr std::string_view mapped = "::ffff:";

    if (address.starts_with (mapped))
        address.remove_prefix (mapped.size());

    return address.starts_with ("127.") || address == "::1";
}

/** One request and its reply, without redirects. */
class Transfer
{
public:
    Transfer (const ParsedUrl& urlToGet, const HttpLimits& limitsToKeep, steady_clock::time_point end,
              const std::function<bool()>& stopRequest)
        : url (urlToGet),
          limits (limitsToKeep),
          deadline (end),
          shouldStop (stopRequest)
    {
    }

    /** @returns whether a complete header came */
    bool run()
    {
        if (! resolve())
            return false;

        easy.reset (::curl_easy_init());
        const MultiHandle multi (::curl_multi_init());

        if (easy == nullptr || multi == nullptr || ! configure()
            || ::curl_multi_add_handle (multi.get(), easy.get()) != CURLM_OK)
            return false;

        perform (multi.get());
        ::curl_multi_remove_handle (multi.get(), easy.get());
        return headerComplete;
    }

    HttpReply reply;
    std::string redirect; // text of the header Location

private:
    /** Gives libcurl the addresses of a host's name, since its own look-up can exceed the limits. */
    bool resolve()
    {
        const auto host = url.host();

        if (host.starts_with ('[')) // a number of IPv6
            return true;

        const auto start = steady_clock::now();
        const auto addresses = veltra::lookUpHost (host, std::min (deadline, start + limits.connectTime), shouldStop);
        connectTime -= std::chrono::duration_cast<std::chrono::milliseconds> (steady_clock::now() - start);

        if (addresses.empty() || connectTime.count() <= 0)
            return false;

        if (addresses.front() == host)
            return true;

        auto entry = host + ":" + url.port() + ":";

        for (const auto& address : addresses)
            entry += (entry.ends_with (':') ? "" : ",")
                     + (address.find (':') == address.npos ? address : "[" + address + "]");

        addressBook.reset (::curl_slist_append (nullptr, entry.c_str()));
        return addressBook != nullptr;
    }

    bool configure()
    {
        const auto set = [this] (CURLoption option, auto value) {
            return ::curl_easy_setopt (easy.get(), option, value) == CURLE_OK;
        };

        const auto left = std::chrono::duration_cast<std::chrono::milliseconds> (deadline - steady_clock::now());

        return left.count() > 0 && set (CURLOPT_URL, url.text().c_str()) && set (CURLOPT_PROTOCOLS_STR, "http,https")
               && set (CURLOPT_FOLLOWLOCATION, 0L) && set (CURLOPT_HTTP_VERSION, long { CURL_HTTP_VERSION_1_1 })
               && set (CURLOPT_PROXY, "") // which also keeps it from looking at the environment
               && set (CURLOPT_NOSIGNAL, 1L) && set (CURLOPT_CONNECTTIMEOUT_MS, static_cast<long> (connectTime.count()))
               && set (CURLOPT_TIMEOUT_MS, static_cast<long> (left.count())) && set (CURLOPT_RESOLVE, addressBook.get())
               && set (CURLOPT_OPENSOCKETFUNCTION, &socketCallback) && set (CURLOPT_PREREQFUNCTION, &connectedCallback)
               && set (CURLOPT_PREREQDATA, this) && set (CURLOPT_HEADERFUNCTION, &headerCallback)
               && set (CURLOPT_HEADERDATA, this) && set (CURLOPT_WRITEFUNCTION, &bodyCallback)
               && set (CURLOPT_WRITEDATA, this);
    }

    void perform (CURLM* multi)
    {
        for (int running = 1;;)
        {
            if (::curl_multi_perform (multi, &running) != CURLM_OK || running == 0 || ! bodyWanted()
                || steady_clock::now() >= deadline || headerIsLate() || shouldStop())
                return;

            ::curl_multi_poll (multi, nullptr, 0, 50, nullptr);
        }
    }

    /** Whether the header has not come within its time, which begins when libcurl is about to send the request. */
    bool headerIsLate()
    {
        curl_off_t requestStart_us = 0;

        if (! requestTime
            && (::curl_easy_getinfo (easy.get(), CURLINFO_PRETRANSFER_TIME_T, &requestStart_us) != CURLE_OK
                || requestStart_us <= 0))
            return false;

        const auto now = steady_clock::now();
        requestTime = requestTime.value_or (now);
        return ! headerComplete && now - *requestTime >= limits.headerTime;
    }

    bool bodyWanted() const { return ! headerComplete || reply.status == 200; }

    /** @returns how many bytes were taken; with fewer than it offered, libcurl ends the transfer */
    std::size_t takeHeaderLine (std::string_view line)
    {
        headerSize += line.size();

        if (headerSize > limits.headerSize)
            return 0;

        constexpr std::string_view name = "location:";

        if (line.starts_with ("HTTP/"))
        {
            // Again after each "100 Continue".
            redirect.clear();
            headerComplete = false;
        }
        else if (line == "\r\n" || line == "\n")
        {
            long status = 0;
            ::curl_easy_getinfo (easy.get(), CURLINFO_RESPONSE_CODE, &status);
            reply.status = static_cast<int> (status);
            headerComplete = status >= 200;
        }
        else if (line.size() > name.size() && std::equal (name.begin(), name.end(), line.begin(), [] (char a, char b) {
                     return a == (b | 0x20);
                 }))
        {
            const auto value = line.substr (name.size());
            const auto first = value.find_first_not_of (" \t\r\n");
            redirect = first == value.npos ? "" : value.substr (first, value.find_last_not_of (" \t\r\n") + 1 - first);
        }

        return line.size();
    }

    std::size_t takeBody (std::string_view bytes)
    {
        if (! bodyWanted())
            return 0;

        const auto taken = std::min (bytes.size(), limits.bodySize - reply.body.size());
        reply.body += bytes.substr (0, taken);
        reply.bodyTooLong = taken < bytes.size();
        return taken;
    }

    /** libcurl's own sockets are inherited by programs that the host starts. */
    static curl_socket_t socketCallback (void*, curlsocktype, curl_sockaddr* address)
    {
        return static_cast<curl_socket_t> (
            veltra::ipc::platform::openSocket (address->family, address->socktype, address->protocol));
    }

    /** Called before the request is sent. */
    static int connectedCallback (void* transfer, char* peer, char*, int, int)
    {
        return isLoopback (peer) && ! static_cast<Transfer*> (transfer)->limits.mayUseLoopback ? CURL_PREREQFUNC_ABORT
                                                                                               : CURL_PREREQFUNC_OK;
    }

    static std::size_t headerCallback (char* data, std::size_t size, std::size_t count, void* transfer)
    {
        return static_cast<Transfer*> (transfer)->takeHeaderLine ({ data, size * count });
    }

    static std::size_t bodyCallback (char* data, std::size_t size, std::size_t count, void* transfer)
    {
        return static_cast<Transfer*> (transfer)->takeBody ({ data, size * count });
    }

    const ParsedUrl& url;
    const HttpLimits& limits;
    const steady_clock::time_point deadline;
    const std::function<bool()>& shouldStop;
    std::chrono::milliseconds connectTime = limits.connectTime;
    List addressBook; // outlives the handle, which reads it
    EasyHandle easy;
    std::size_t headerSize = 0;
    bool headerComplete = false;
    std::optional<steady_clock::time_point> requestTime;
};

}

std::optional<HttpReply> httpGet (const std::string& url, const std::function<bool()>& shouldStop,
                                  const HttpLimits& limits)
{
    // With CURLOPT_NOSIGNAL libcurl does not ignore the signal, which a TLS connection that the peer has closed raises.
    const veltra::ipc::platform::BlockedSigpipe guard;
    const auto deadline = steady_clock::now() + limits.totalTime;
    ParsedUrl current (url);

    for (int redirects = 0; curlIsReady() && current.isHttp(); ++redirects)
    {
        Transfer transfer (current, limits, deadline, shouldStop);

        if (! transfer.run())
            break;

        const bool redirected =
            transfer.reply.status >= 300 && transfer.reply.status < 400 && ! transfer.redirect.empty();
        const auto from = current.text();

        if (! redirected || redirects == limits.redirects)
            return std::move (transfer.reply);

        if (! current.follow (transfer.redirect))
            break;

        if (current.text() == from)
            return std::move (transfer.reply);
    }

    return std::nullopt;
}

}
