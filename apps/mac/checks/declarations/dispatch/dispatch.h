// Grand Central Dispatch, as the Mac layer uses it: declarations for the Objective-C++ check
// only. On a Mac a queue is an Objective-C object; a plain pointer serves for types here.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct dispatch_queue_s* dispatch_queue_t;
typedef void (^dispatch_block_t)(void);

dispatch_queue_t dispatch_get_main_queue(void);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
void dispatch_async_f(dispatch_queue_t queue, void* context, void (*work)(void* context));

#ifdef __cplusplus
}
#endif
