/*
 * zorv.h - every public header of the library.
 */
#ifndef ZORV_ZORV_H
#define ZORV_ZORV_H

#include <zorv/aes.h>
#include <zorv/api.h>
#include <zorv/avg.h>
#include <zorv/base64.h>
#include <zorv/board.h>
#include <zorv/bridge.h>
#include <zorv/buffer.h>
#include <zorv/cfg.h>
#include <zorv/crash.h>
#include <zorv/curl_simple.h>
#include <zorv/exec.h>
#include <zorv/file.h>
#include <zorv/format.h>
#include <zorv/guest_portal.h>
#include <zorv/hardware.h>
#include <zorv/iface.h>
#include <zorv/json.h>
#include <zorv/lock.h>
#include <zorv/log.h>
#include <zorv/model.h>
#include <zorv/protocol.h>
#include <zorv/ps.h>
#include <zorv/sha256.h>
#include <zorv/stats.h>
#include <zorv/status.h>
#include <zorv/text.h>
#include <zorv/trace.h>
#include <zorv/url.h>
#include <zorv/version.h>

#endif
