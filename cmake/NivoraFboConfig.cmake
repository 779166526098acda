# The package that a client finds: Nivora::fbo is all that it links.

include(${CMAKE_CURRENT_LIST_DIR}/AndroidLibraries.cmake)
find_android_libraries(utils)
include(${CMAKE_CURRENT_LIST_DIR}/NivoraFboTargets.cmake)
