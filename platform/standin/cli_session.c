/* cli_session.c: texts for management command-line sessions. */
#include "kel_platform.h"

#include <stdio.h>

int cmNotifyCLI(int cli, const char *text)
{
    (void)cli;
    return printf("%s", text);
}
