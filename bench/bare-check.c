/* The socket calls of one update check and little else, in plain C: what the utility is measured
 * against. Usage: quintral_bare_check ADDRESS PORT
 *
 * Sends the request of
 *
 *     quintral -service ADDRESS:PORT -product 'Quintral Shapes' -productline Quintral
 *         -product-version 5.1 -version-name 5.1
 *
 * in the same pieces, receives the reply with the same calls and the same time limit, and prints
 * the same answer. It has no options, name lookup, signal handlers, or checks of the reply. The
 * version of the system is a constant: the service ignores it. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

static const char form[] = "product=Quintral%20Shapes&productline=Quintral&version=5%2e100&"
                           "version_name=5%2e1&os=Linux&os_version=6%2e1%2e0%2d32%2damd64&"
                           "machine_id=&processor_arch=x86%5f64";

static void send_text(int descriptor, const char *text)
{
    (void)!send(descriptor, text, strlen(text), MSG_NOSIGNAL);
}

static void send_request(int descriptor, const char *host, const char *port)
{
    char text[128];
    send_text(descriptor, "POST ");
    snprintf(text, sizeof text, "http://%s:%s/version-update.php", host, port);
    send_text(descriptor, text);
    send_text(descriptor, " HTTP/1.0\r\n");
    send_text(descriptor, "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n");
    send_text(descriptor, "Accept-Language: en-us\r\n");
    send_text(descriptor, "User-Agent: Velmora_Auto1\r\n");
    send_text(descriptor, "Referer: www.quintral.example\r\n");
    snprintf(text, sizeof text,
             "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: %zu\r\n",
             sizeof form - 1);
    send_text(descriptor, text);
    snprintf(text, sizeof text, "Host: %s\r\n", host);
    send_text(descriptor, text);
    send_text(descriptor, "\r\n");
    send_text(descriptor, form);
}

static long milliseconds(void)
{
    struct timeval now;
    gettimeofday(&now, NULL);
    return now.tv_sec * 1000L + now.tv_usec / 1000;
}

/* Waits for data, then receives up to `size` bytes. Returns 0 at the end, after 10 seconds without
 * data, and after an error. */
static size_t receive(int descriptor, char *bytes, size_t size, long wait_milliseconds)
{
    const long deadline = milliseconds() + 10000;
    while (milliseconds() < deadline) {
        struct timeval timeout = {wait_milliseconds / 1000, wait_milliseconds % 1000 * 1000};
        fd_set descriptors;
        FD_ZERO(&descriptors);
        FD_SET(descriptor, &descriptors);
        if (select(1024, &descriptors, NULL, NULL, &timeout) > 0) {
            const ssize_t received = recv(descriptor, bytes, size, 0);
            return received > 0 ? (size_t)received : 0;
        }
    }
    return 0;
}

/* Returns 0, or -1 if the reply ends within its header. */
static int skip_header(int descriptor)
{
    size_t line_length = 0;
    char byte;
    while (receive(descriptor, &byte, 1, 100) == 1) {
        if (byte == '\n' && line_length == 0)
            return 0;
        if (byte == '\n')
            line_length = 0;
        else if (byte != '\r')
            ++line_length;
    }
    return -1;
}

/* Receives the body into a block that the caller frees; null if memory runs out. */
static char *receive_body(int descriptor)
{
    char chunk[1024];
    char *body = calloc(1, 1);
    size_t length = 0;
    size_t received = 0;
    while (body != NULL && (received = receive(descriptor, chunk, sizeof chunk - 1, 10000)) > 0) {
        char *larger = realloc(body, length + received + 1);
        if (larger == NULL)
            free(body);
        body = larger;
        if (body == NULL)
            break;
        memcpy(body + length, chunk, received);
        length += received;
        body[length] = '\0';
    }
    return body;
}

/* Prints the values, and the message without its key. Returns the exit status. */
static int print_answer(const char *body)
{
    static const char key[] = "Message: ";
    const char *message = body != NULL ? strstr(body, key) : NULL;
    if (message == NULL)
        return 1;
    printf("%.*s%s", (int)(message - body), body, message + sizeof key - 1);
    return fflush(stdout) == 0 ? 0 : 1;
}

int main(int argument_count, char **arguments)
{
    struct sockaddr_in address = {0};
    address.sin_family = AF_INET;
    if (argument_count != 3 || strlen(arguments[1]) > 64 || strlen(arguments[2]) > 5 ||
        inet_pton(AF_INET, arguments[1], &address.sin_addr) != 1)
        return 2;
    address.sin_port = htons((unsigned short)strtoul(arguments[2], NULL, 10));
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(descriptor, (const struct sockaddr *)&address, sizeof address) != 0)
        return 1;
    send_request(descriptor, arguments[1], arguments[2]);
    char *body = skip_header(descriptor) == 0 ? receive_body(descriptor) : NULL;
    close(descriptor);
    const int status = print_answer(body);
    free(body);
    return status;
}
