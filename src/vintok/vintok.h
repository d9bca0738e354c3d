// Everything public: what an application includes.
#ifndef VINTOK_VINTOK_H
#define VINTOK_VINTOK_H

#include "vintok/ConferenceParticipant.h"
#include "vintok/Export.h"
#include "vintok/TCPAddress.h"

#endif
