#pragma once

#ifdef __cplusplus
extern "C" {
#endif

void Work(void);

#ifdef __cplusplus
}
#endif
