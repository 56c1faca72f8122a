/* listener.h: telling the listener, shared by the stand-in's sources. Never called with a lock held. */
#ifndef STANDIN_LISTENER_H
#define STANDIN_LISTENER_H

#include <kel_platform.h>

void tellAppeared(portInstance_t instance);
void tellDisappeared(portInstance_t instance);
void tellLinkChanged(portInstance_t instance, int up);

#endif
