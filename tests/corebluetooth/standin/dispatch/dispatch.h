// What this project uses of libdispatch: a source that reads, on the main queue. As there, what is
// on the main queue runs in all common modes of the main run loop, one at a time, and not from
// inside another.
#pragma once
#import <Foundation/Foundation.h>

#include <stdint.h>

typedef id dispatch_queue_t;
typedef id dispatch_source_t;
typedef const struct dispatch_source_type_s* dispatch_source_type_t;
typedef void (*dispatch_function_t)(void*);

FOUNDATION_EXPORT const struct dispatch_source_type_s* const standin_source_type_read;
#define DISPATCH_SOURCE_TYPE_READ standin_source_type_read

FOUNDATION_EXPORT dispatch_queue_t dispatch_get_main_queue(void);
FOUNDATION_EXPORT dispatch_source_t dispatch_source_create(dispatch_source_type_t type,
                                                           uintptr_t handle, uintptr_t mask,
                                                           dispatch_queue_t queue);
FOUNDATION_EXPORT void dispatch_source_set_event_handler_f(dispatch_source_t source,
                                                           dispatch_function_t handler);
FOUNDATION_EXPORT void dispatch_resume(dispatch_source_t source);
