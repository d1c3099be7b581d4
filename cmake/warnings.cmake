# SPDX-License-Identifier: MIT
# Warnings and Qt strictness for our own targets; nothing of it reaches a user's build.
function(flotrofobul_strict target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wold-style-cast -Wnon-virtual-dtor
    -Wcast-align -Wformat=2 -Wunused)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # QSKIP() of Qt 5 leaves out the arguments of a macro.
    target_compile_options(${target} PRIVATE -Wno-unknown-warning-option -Wno-gnu-zero-variadic-macro-arguments)
  elseif(FLOTROFOBUL_QT EQUAL 5 AND CMAKE_SIZEOF_VOID_P EQUAL 8) # other sizes need other casts
    target_compile_options(${target} PRIVATE -Wuseless-cast)
    # moc casts what needs no cast: in a file of its own, and in files that a source of ours includes.
    set(autogen "${CMAKE_CURRENT_BINARY_DIR}/${target}_autogen")
    set_source_files_properties("${autogen}/mocs_compilation.cpp" PROPERTIES COMPILE_OPTIONS -Wno-useless-cast)
    target_include_directories(${target} SYSTEM PRIVATE "${autogen}/include")
  endif()
  if(FLOTROFOBUL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  target_compile_definitions(${target} PRIVATE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_NO_FOREACH
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT QT_USE_QSTRINGBUILDER)
endfunction()
