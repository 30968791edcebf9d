#ifndef NIVUR_NIVUR_H
#define NIVUR_NIVUR_H

/// \file
/// Includes every header but <nivur/ifaddrs.h>, whose struct has the same name as the platform's.
///
/// No operation throws an exception of its own. When memory for the data of buffers, for JSON or
/// for the list of getifaddrs() is exhausted, the result reports it. Elsewhere std::bad_alloc from
/// `new` and the standard containers propagates; all locks are then released and no change is left
/// incomplete.

#include "buffer.h"
#include "buffer_list.h"
#include "buffer_pool.h"
#include "client_socket.h"
#include "date.h"
#include "dictionary.h"
#include "event.h"
#include "event_center.h"
#include "event_handler.h"
#include "interface_address.h"
#include "io_result.h"
#include "log.h"
#include "mutex.h"
#include "no_copyable.h"
#include "parameter.h"
#include "ring_buffer.h"
#include "run_loop.h"
#include "runnable.h"
#include "semaphore.h"
#include "serialization.h"
#include "server_socket.h"
#include "shared_ptr.h"
#include "socket.h"
#include "socket_address.h"
#include "stop_watch.h"
#include "string_util.h"
#include "system_property.h"
#include "system_util.h"
#include "thread.h"
#include "udp_socket.h"
#include "version.h"

#endif
