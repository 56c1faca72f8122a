/* The C side of the address values: one call that brings address texts into one form, for logs and comparisons. */
#include <ipaddr.h>
#include <stdio.h>

int main(void)
{
    const char *texts[] = {"192.0.2.1", "::ffff:192.0.2.1", "2001:DB8:0:0:0:0:0:1", "no address"};
    char text[46]; /* room for any; with less it is always "UNKNOWN" */
    for (unsigned i = 0; i < sizeof texts / sizeof *texts; ++i) {
        get_unmapped_address_string(texts[i], text, sizeof text);
        printf("%-22s %s\n", texts[i], text);
    }
}

/* Prints:
192.0.2.1              192.0.2.1
::ffff:192.0.2.1       192.0.2.1
2001:DB8:0:0:0:0:0:1   2001:db8::1
no address             UNKNOWN
*/
