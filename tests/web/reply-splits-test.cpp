// Reference replies that arrive in two parts, split at every offset, and replies that end at every
// offset. A split changes nothing. A reply that ends early is what a simple reading of its first
// bytes gives. All over real sockets.
#include "tests/harness/loopback-peer.h"
#include "tests/web/transaction-calls.h"
#include "tests/web/update-check-calls.h"
#include "web/transaction.h"
#include "web/update-check.h"

#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

// Small, since the last byte of a broken header line is stored up to the limit.
constexpr std::size_t header_limit = 1000;

struct ReferenceReply {
    const char *name;
    std::string bytes;
};

std::vector<ReferenceReply> reference_replies()
{
    return {
        {"an update",
         "HTTP/1.0 200 OK\r\nServer: s\r\n\r\n"
         "Version: 5.2\r\nURL: http://a/b\r\nButton: Get it\r\nMessage: One\r\nTwo\r\n"},
        {"bare line feeds", "HTTP/1.1 204 No Content\nA: b\n\nMessage: m"},
        {"without a reason", "HTTP/1.0 200\r\nA: b\r\n\r\nVersion: 5\r\nMessage: m\r\n"},
        {"a status that is not accepted", "HTTP/1.0 404 Not Found\r\n\r\n<html>No</html>\r\n"},
        {"not HTTP", "\x15\x03\x03\r\rx\n \n\r\r\nbody"},
        {"without a header", "\nVersion: 5\nMessage: m"},
        {"a NUL in the header", std::string("HTTP/1.0 200 OK\nA\0b\n\nMessage: m", 31)},
        {"bytes above 0x7F", "HTTP/1.0 200 \xC3\xA4\r\n\r\nVersion: \xFF\nMessage: \x80\xE2\x82"},
    };
}

// The header that a reply's first bytes begin with, and the rest.
struct SimpleReply {
    bool has_header; // up to the line feed of the empty line
    std::string header;
    std::string rest;
};

SimpleReply read_simply(const std::string &bytes)
{
    std::string line;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\n' && line.empty())
            return {true, bytes.substr(0, i), bytes.substr(i + 1)};
        if (bytes[i] == '\n')
            line.clear();
        else if (bytes[i] != '\r')
            line += bytes[i];
    }
    return {false, bytes, ""};
}

std::string up_to_nul(const std::string &bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

// The outcome of a reply that ends with these bytes. At the close the last byte is processed again:
// a line feed, or no byte at all, ends the header; any other byte is stored up to the limit.
std::string outcome_of_end(const std::string &bytes)
{
    const SimpleReply reply = read_simply(bytes);
    if (reply.has_header || bytes.empty() || bytes.back() == '\n')
        return delivered(up_to_nul(reply.header), up_to_nul(reply.rest));
    return header_too_long(header_limit);
}

// One script for each offset.
template <typename MakeScript>
std::vector<PeerScript> script_for_each(std::size_t count, const MakeScript &make_script)
{
    std::vector<PeerScript> scripts;
    for (std::size_t offset = 0; offset < count; ++offset)
        scripts.push_back(make_script(offset));
    return scripts;
}

LoopbackPeer splitting_peer(const std::string &bytes)
{
    // The pause usually lets the client receive the first part alone. It certainly does in the
    // scripted tests, such as AByteEveryNineSecondsContinuesUpToTheReplyLimits.
    return LoopbackPeer(script_for_each(bytes.size() + 1, [&bytes](std::size_t offset) {
        return PeerScript{reading, sending(bytes.substr(0, offset)), pausing(2),
                          sending(bytes.substr(offset))};
    }));
}

LoopbackPeer ending_peer(const std::string &bytes)
{
    return LoopbackPeer(script_for_each(bytes.size() + 1, [&bytes](std::size_t offset) {
        return answering(bytes.substr(0, offset));
    }));
}

// All that a check returns, as one string.
std::string shown_check(const WebUpdateReply &reply, int result)
{
    std::string shown = std::string(web_update_failure_name(reply.failure)) + " " +
                        std::to_string(result) + " " + std::to_string(reply.http_status) + " " +
                        std::to_string(reply.newer);
    for (const char *text : {reply.error, reply.reason, reply.header, reply.body, reply.version,
                             reply.url, reply.button, reply.message})
        shown += text == nullptr ? "\nnone" : "\n'" + std::string(text) + "'";
    return shown;
}

std::string check_over(const LoopbackPeer &peer)
{
    const std::string service = peer.address();
    const WebUpdateQuery query = sample_query(service.c_str());
    OwnedReply reply;
    const int result = web_check_for_update(&query, &reply);
    return shown_check(reply, result);
}

std::string read_saved(const std::string &bytes)
{
    OwnedReply reply;
    const int result = web_read_update_reply(bytes.data(), bytes.size(), "5.1", &reply);
    return shown_check(reply, result);
}

TEST_F(WebTransaction, AReplySplitAtAnyOffsetIsTheWholeReply)
{
    web_set_reply_limits(header_limit, 0);
    for (const ReferenceReply &row : reference_replies()) {
        SCOPED_TRACE(row.name);
        const LoopbackPeer peer = splitting_peer(row.bytes);
        for (std::size_t offset = 0; offset <= row.bytes.size(); ++offset)
            EXPECT_EQ(call_web({url_of(peer)}), outcome_of_end(row.bytes)) << "at " << offset;
    }
}

TEST_F(WebTransaction, AReplyThatEndsAtAnyOffsetIsReadUpToThere)
{
    web_set_reply_limits(header_limit, 0);
    for (const ReferenceReply &row : reference_replies()) {
        SCOPED_TRACE(row.name);
        const LoopbackPeer peer = ending_peer(row.bytes);
        for (std::size_t end = 0; end <= row.bytes.size(); ++end)
            EXPECT_EQ(call_web({url_of(peer)}), outcome_of_end(row.bytes.substr(0, end)))
                << "at " << end;
    }
}

TEST_F(WebTransaction, ACheckOfASplitReplyIsThatOfTheSavedReply)
{
    web_set_reply_limits(header_limit, 0);
    for (const ReferenceReply &row : reference_replies()) {
        SCOPED_TRACE(row.name);
        const LoopbackPeer peer = splitting_peer(row.bytes);
        for (std::size_t offset = 0; offset <= row.bytes.size(); ++offset)
            EXPECT_EQ(check_over(peer), read_saved(row.bytes)) << "at " << offset;
    }
}

// Without its empty line a saved reply is the same as one whose service closed after a line.
TEST_F(WebTransaction, ACheckOfAReplyThatEndsEarlyIsThatOfTheSavedPartOrTooLong)
{
    web_set_reply_limits(header_limit, 0);
    for (const ReferenceReply &row : reference_replies()) {
        SCOPED_TRACE(row.name);
        const LoopbackPeer peer = ending_peer(row.bytes);
        for (std::size_t end = 0; end <= row.bytes.size(); ++end) {
            const std::string part = row.bytes.substr(0, end);
            const bool is_broken = outcome_of_end(part) == header_too_long(header_limit);
            const std::string shown = check_over(peer);
            if (is_broken)
                EXPECT_EQ(shown.compare(0, 8, "too-long"), 0) << end << ": " << shown;
            else
                EXPECT_EQ(shown, read_saved(part)) << "at " << end;
        }
    }
}

} // namespace
} // namespace quintral
