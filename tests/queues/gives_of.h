// gives_of.h: how often a counting or binary semaphore could be taken now, without taking it.
#pragma once

#include "vxw_shim.h"

#include <semaphore.h>

inline int givesOf(SEM_ID sem)
{
    int gives = -1;
    sem_getvalue(static_cast<sem_t *>(sem->impl), &gives);
    return gives;
}
