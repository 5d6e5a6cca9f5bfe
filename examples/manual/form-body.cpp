#include <quintral/web/form-body.h>

#include <cstdio>

using namespace quintral;

int main()
{
    const WebField fields[] = {{"a b", "1.5-x"}, {"c", "d"}};
    std::string header, body;
    web_form_body(2, fields, header, body);
    std::printf("%s\n", body.c_str());
    char escaped[3 * 5 + 1];
    std::printf("%s\n", web_escape(escaped, "50 %"));
    return 0;
}
