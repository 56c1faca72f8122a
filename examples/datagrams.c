/* A UDP server that learns to which of its addresses a request was sent, and answers from that one. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <vxw_shim.h>

int main(void)
{
    /* An IPv6 socket for both families: there Linux lets the source of an answer be chosen for IPv4 as well. */
    const int server = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int client = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1, off = 0;
    struct sockaddr_in6 any = {.sin6_family = AF_INET6};
    socklen_t length = sizeof any;
    setsockopt(server, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    setsockopt(server, IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof on);
    inet_pton(AF_INET6, "::ffff:0.0.0.0", &any.sin6_addr);
    if (bind(server, (const struct sockaddr *)&any, sizeof any) != 0 ||
        getsockname(server, (struct sockaddr *)&any, &length) != 0)
        return 1;

    /* The request goes to 127.0.0.2, one of the many addresses of this host. */
    struct sockaddr_in asked = {.sin_family = AF_INET, .sin_port = any.sin6_port};
    asked.sin_addr.s_addr = htonl(0x7F000002);
    sendto(client, "which?", 6, 0, (const struct sockaddr *)&asked, sizeof asked);

    char text[64];
    struct sockaddr_in6 source;
    socklen_t sourceBytes = sizeof source;
    union packet_info arrivedAt;
    const ssize_t bytes =
        recvfrom_wdst(server, text, sizeof text, 0, (struct sockaddr *)&source, &sourceBytes, &arrivedAt);
    const uint8_t *address = arrivedAt.ipv6.address + 12; /* IPv4-mapped: its last four bytes */
    printf("server: \"%.*s\" came to %d.%d.%d.%d\n", (int)bytes, text, address[0], address[1], address[2], address[3]);
    sendto_wsrc(server, "here", 4, 0, (const struct sockaddr *)&source, sourceBytes, &arrivedAt);

    struct sockaddr_in answered;
    socklen_t answeredBytes = sizeof answered;
    recvfrom(client, text, sizeof text, 0, (struct sockaddr *)&answered, &answeredBytes);
    printf("client: the answer comes from %s\n", inet_ntop(AF_INET, &answered.sin_addr, text, sizeof text));
    close(server);
    close(client);
}

/* Prints:
server: "which?" came to 127.0.0.2
client: the answer comes from 127.0.0.2
*/
