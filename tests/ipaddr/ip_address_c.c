/* ip_address_c.c: the call that C programs have, made from one. */
#include "ipaddr.h"

void printFromC(const char *text, char *buf, unsigned int len);

void printFromC(const char *text, char *buf, unsigned int len)
{
    get_unmapped_address_string(text, buf, len);
}
