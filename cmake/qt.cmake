# SPDX-License-Identifier: MIT
# The one place that knows in what a build for one Qt differs from a build for the other: the release that is wanted,
# the library that holds QRegExp, and the names of what is installed, so that both can be there beside each other.
set_property(CACHE FLOTROFOBUL_QT PROPERTY STRINGS 5 6)

if(FLOTROFOBUL_QT STREQUAL "5")
  set(flotrofobul_qt_release 5.15)
  set(flotrofobul_regexp Core)
  set(flotrofobul_suffix "")
  set(flotrofobul_subfolder "")
elseif(FLOTROFOBUL_QT STREQUAL "6")
  set(flotrofobul_qt_release 6.4)
  set(flotrofobul_regexp Core5Compat)
  set(flotrofobul_suffix -qt6) # of library, packages and programs
  set(flotrofobul_subfolder /flotrofobul-qt6) # of the headers
else()
  message(FATAL_ERROR "FLOTROFOBUL_QT is \"${FLOTROFOBUL_QT}\"; it can be 5 or 6.")
endif()
set(flotrofobul_qt Qt${FLOTROFOBUL_QT})
set(QT_DEFAULT_MAJOR_VERSION ${FLOTROFOBUL_QT}) # for Qt's functions without a number in their name
