# SPDX-License-Identifier: LGPL-2.1-or-later
# Included by the toolchains of whole other systems, which set CMAKE_SYSTEM_PROCESSOR, triplet (of
# the compiler) and multiarch (of Debian's folders). The compiler brings the C and the C++ library;
# all else is in the folder that scripts/cross fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${multiarch})

get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${multiarch}/root ABSOLUTE)
set(libraries ${sysroot}/usr/lib/${multiarch}:${sysroot}/lib/${multiarch})
set(CMAKE_FIND_ROOT_PATH ${sysroot})
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR} ${sysroot}/usr/lib/${multiarch}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${sysroot})

set(headers "-isystem ${sysroot}/usr/include -isystem ${sysroot}/usr/include/${multiarch}")
set(CMAKE_C_FLAGS_INIT "${headers}")
set(CMAKE_CXX_FLAGS_INIT "${headers}")
# Programs find their libraries without being told where.
string(REPLACE ":" " -L" folders ${libraries})
set(linking "-L${folders} -Wl,-rpath,/usr/${triplet}/lib:${libraries} ${loader_option}")
foreach(kind EXE MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "${linking}")
endforeach()
