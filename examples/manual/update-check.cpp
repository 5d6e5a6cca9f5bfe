#include <quintral/web/update-check.h>

#include <cstdio>

using namespace quintral;

// The argument is the update service, host or host:port. A real program makes the strings of the
// reply safe before it shows them.
int main(int argument_count, char **arguments)
{
    WebUpdateQuery query;
    web_update_query_init(&query);
    query.product = "Quintral Shapes";
    query.product_line = "Quintral";
    query.version = "5.1";
    query.service = argument_count == 2 ? arguments[1] : nullptr;
    WebUpdateReply reply;
    web_update_reply_init(&reply);
    const int result = web_check_for_update(&query, &reply);
    if (result != WebOk)
        std::printf("%s: %s\n", web_update_failure_name(reply.failure), reply.error);
    else if (reply.newer == WebNewer)
        std::printf("%s is newer\n%s", reply.version, reply.message);
    web_update_reply_free(&reply);
    return result == WebOk ? 0 : 1;
}
