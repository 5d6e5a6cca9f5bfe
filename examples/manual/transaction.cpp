#include <quintral/web/transaction.h>

#include <cstdio>
#include <cstdlib>

using namespace quintral;

// The argument is a URL. A status other than 200 to 299 is a failure.
int main(int argument_count, char **arguments)
{
    if (argument_count != 2)
        return 2;
    web_set_reply_limits(65536, 1048576);
    char *header = nullptr;
    char *body = nullptr;
    int result =
        web_request(arguments[1], "GET", 0, nullptr, &header, &body, nullptr, 0, nullptr, nullptr);
    if (result == WebOk)
        result = web_check_reply(header);
    if (result == WebOk)
        std::fputs(body, stdout);
    else
        std::printf("Error: %s\n", web_last_error());
    std::free(header);
    std::free(body);
    return result == WebOk ? 0 : 1;
}
