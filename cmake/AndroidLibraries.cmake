# Android's libraries as Debian packages them. For this project and for those that find it installed.

# Makes an imported target libNAME of each NAME.
function(find_android_libraries)
    find_path(ANDROID_INCLUDE utils/RefBase.h PATH_SUFFIXES android REQUIRED)
    foreach(name ${ARGV})
        find_library(ANDROID_LIB${name} ${name} PATH_SUFFIXES android REQUIRED)
        if(NOT TARGET lib${name})
            add_library(lib${name} INTERFACE IMPORTED GLOBAL)
            target_link_libraries(lib${name} INTERFACE ${ANDROID_LIB${name}})
            target_include_directories(lib${name} INTERFACE ${ANDROID_INCLUDE})
        endif()
    endforeach()
endfunction()
