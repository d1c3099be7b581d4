# SPDX-License-Identifier: MIT
# The rules of Android on this machine, for trying them without an NDK: names as there, and no pkg-config. The code is
# this machine's own.
set(ANDROID ON)
set(ANDROID_ABI armeabi-v7a)
# CMake's part: an application takes no library with a version behind its name.
set(CMAKE_PLATFORM_NO_VERSIONED_SONAME ON)
# Qt's part (Qt5AndroidSupport.cmake): an application holds the libraries of several architectures.
foreach(kind IN ITEMS LIBRARY MODULE)
  set(CMAKE_SHARED_${kind}_SUFFIX_CXX "_${ANDROID_ABI}.so")
endforeach()
set(PKG_CONFIG_EXECUTABLE false) # the program of that name
