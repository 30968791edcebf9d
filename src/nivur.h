#ifndef NIVUR_NIVUR_H
#define NIVUR_NIVUR_H

/// \file
/// Everything but <nivur/ifaddrs.h>, which names a record as the platform's <ifaddrs.h> does.
///
/// No operation throws of its own. When memory is exhausted, buffers' data, JSON trees and
/// interface lists say so by their results; elsewhere the std::bad_alloc of `new` and of standard
/// containers passes through, with every lock released and nothing half done.

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
