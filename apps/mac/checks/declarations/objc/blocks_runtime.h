// The blocks runtime GNUstep's headers ask for when the compiler has blocks; on a Mac it is
// <Block.h>. Declarations for the Objective-C++ check only.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

void* _Block_copy(const void* block);
void _Block_release(const void* block);

#ifdef __cplusplus
}
#endif

#define Block_copy(block) ((__typeof(block))_Block_copy((const void*)(block)))
#define Block_release(block) _Block_release((const void*)(block))
