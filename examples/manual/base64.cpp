#include <quintral/web/base64.h>

#include <cstdio>
#include <vector>

using namespace quintral;

int main()
{
    const char credentials[] = "user:password";
    const int length = static_cast<int>(sizeof credentials) - 1;
    std::vector<char> text(static_cast<std::size_t>(base64_encoded_length(length)) + 1);
    base64_encode(credentials, length, text.data());
    std::printf("%s\n", text.data());
    return 0;
}
