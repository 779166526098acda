#pragma once

#include <android/log.h>

/*
 * Every line goes to the one tag "mem_fbo" and begins with the function that speaks and the
 * source line. FBO_LOGD/I/E name the function they stand in; FBO_LOG takes the name from its
 * caller, for a step that is part of a larger operation and speaks in its name.
 */

#define FBO_LOG(priority, function, format, ...) \
    __android_log_print(priority, "mem_fbo", "%s:%d: " format, function, __LINE__, ##__VA_ARGS__)

#define FBO_LOGD(...) FBO_LOG(ANDROID_LOG_DEBUG, __func__, __VA_ARGS__)
#define FBO_LOGI(...) FBO_LOG(ANDROID_LOG_INFO, __func__, __VA_ARGS__)
#define FBO_LOGE(...) FBO_LOG(ANDROID_LOG_ERROR, __func__, __VA_ARGS__)
