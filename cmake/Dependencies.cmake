# Debian packages only (scripts/setup.sh installs them). Third-party headers
# come in as system headers so that our warning flags do not apply to them.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(GTest REQUIRED)
find_package(nlohmann_json 3 REQUIRED)
find_package(spdlog REQUIRED)
find_package(fmt REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(CLI11 CONFIG QUIET)
find_package(benchmark QUIET)
find_package(CURL REQUIRED)

pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(SODIUM REQUIRED IMPORTED_TARGET libsodium)
pkg_check_modules(X264 REQUIRED IMPORTED_TARGET x264)
pkg_check_modules(AVCODEC REQUIRED IMPORTED_TARGET libavcodec libavutil)
pkg_check_modules(SWSCALE IMPORTED_TARGET libswscale)
# Debian's libyuv ships no pkg-config file; find it directly.
find_path(YUV_INCLUDE_DIR libyuv.h)
find_library(YUV_LIBRARY yuv)
if(YUV_INCLUDE_DIR AND YUV_LIBRARY AND NOT TARGET PkgConfig::YUV)
  set(YUV_FOUND TRUE)
  add_library(PkgConfig::YUV INTERFACE IMPORTED)
  target_include_directories(PkgConfig::YUV SYSTEM INTERFACE ${YUV_INCLUDE_DIR})
  target_link_libraries(PkgConfig::YUV INTERFACE ${YUV_LIBRARY})
endif()
if(NOT YUV_FOUND)
  message(FATAL_ERROR "libyuv not found (Debian package libyuv-dev)")
endif()
pkg_check_modules(SDL2 REQUIRED IMPORTED_TARGET sdl2)
# The X11 desktop: XCB only, no Xlib.
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb xcb-composite xcb-damage xcb-render xcb-shm xcb-xtest xcb-xfixes xcb-res
  xcb-keysyms)
# What is inside other applications' windows (menus, dialog text): AT-SPI2.
pkg_check_modules(ATSPI REQUIRED IMPORTED_TARGET atspi-2 gobject-2.0)
# Desktop entries of the X11 desktop's applications.
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-unix-2.0)
# Tests drive a real X server: screenshots and synthetic keys.
pkg_check_modules(XTEST REQUIRED IMPORTED_TARGET x11 xtst)

# Standalone Asio is header-only.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(tsl_asio INTERFACE)
target_include_directories(tsl_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(tsl_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
target_link_libraries(tsl_asio INTERFACE Threads::Threads)
# Asio looks for clang's old experimental coroutines only; clang 14 has C++20's.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_definitions(tsl_asio INTERFACE ASIO_HAS_CO_AWAIT=1)
endif()
