# ORVIK_PUBLIC_HEADERS: installed, and tested to compile on their own.
file(GLOB ORVIK_PUBLIC_HEADERS CONFIGURE_DEPENDS
     ${PROJECT_SOURCE_DIR}/frameworks/core.framework/source/orvik/*.h
     ${PROJECT_SOURCE_DIR}/frameworks/image.framework/source/orvik/*.h
     ${PROJECT_SOURCE_DIR}/host/source/orvik/*.h)
list(FILTER ORVIK_PUBLIC_HEADERS EXCLUDE REGEX "_internal\\.h$")
