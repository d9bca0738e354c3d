// Everything public: what an application includes.
#ifndef VINTOK_VINTOK_H
#define VINTOK_VINTOK_H

#include "vintok/BufferManager.h"
#include "vintok/ConferenceParticipant.h"
#include "vintok/ConferenceRosterEntry.h"
#include "vintok/Export.h"
#include "vintok/HTTPAddress.h"
#include "vintok/HTTPText.h"
#include "vintok/RawBuffer.h"
#include "vintok/RosterBase.h"
#include "vintok/TCPAddress.h"
#include "vintok/TCPCertInfo.h"
#include "vintok/TCPException.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPHeader.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPMessageBase.h"
#include "vintok/TCPMessage_1_3.h"
#include "vintok/TCPMutex.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPServer.h"
#include "vintok/TCPStatusCallback.h"
#include "vintok/TCPStream.h"
#include "vintok/TCPTransport.h"
#include "vintok/TempRosterEntry.h"
#include "vintok/UserInfo.h"
#include "vintok/messageUtil.h"
#include "vintok/testTCPServer.h"

#endif
