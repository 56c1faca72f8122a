/* cli_session.h: closing all CLI sessions. */
#ifndef STANDIN_CLI_SESSION_H
#define STANDIN_CLI_SESSION_H

void closeSessions(void);

#endif
