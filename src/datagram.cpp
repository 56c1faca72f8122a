// datagram.cpp: receive with destination, send with source.
#include "vxw_shim.h"
