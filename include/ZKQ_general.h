/**
 * @file ZKQ_general.h
 * @brief Includes every public header of libZKQ_general.
 *
 * The conventions that all functions share stand in ZKQ_general/types.h.
 */
#ifndef ZKQ_GENERAL_H
#define ZKQ_GENERAL_H

#include <ZKQ_general/TamorXml.h>
#include <ZKQ_general/WQXXMLH.h>
#include <ZKQ_general/base64.h>
#include <ZKQ_general/error.h>
#include <ZKQ_general/file.h>
#include <ZKQ_general/http.h>
#include <ZKQ_general/iconv.h>
#include <ZKQ_general/inifile.h>
#include <ZKQ_general/ip.h>
#include <ZKQ_general/json.h>
#include <ZKQ_general/log.h>
#include <ZKQ_general/md5.h>
#include <ZKQ_general/msgpacket.h>
#include <ZKQ_general/mycab.h>
#include <ZKQ_general/netcard.h>
#include <ZKQ_general/ping.h>
#include <ZKQ_general/socket.h>
#include <ZKQ_general/string.h>
#include <ZKQ_general/syncobject.h>
#include <ZKQ_general/system.h>
#include <ZKQ_general/table.h>
#include <ZKQ_general/types.h>
#include <ZKQ_general/x509.h>
#include <ZKQ_general/zlib.h>

#endif
