# SPDX-License-Identifier: LGPL-2.1-or-later
# Where things are installed that GNUInstallDirs knows nothing of. Those of the settings that are
# empty follow the prefix.

# The backends read their configuration from here and nowhere else, whatever the prefix.
set(SANE_CONFIG_FOLDER /etc/sane.d)

# The configuration files name the feature files by their full path.
set(SCANLIB_MODEL_DIR "" CACHE STRING "Folder of the installed model feature files")
if(NOT SCANLIB_MODEL_DIR)
  set(SCANLIB_MODEL_DIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/scanlib/models)
endif()

# udev looks into its own folder, which is that of packages, and into /etc/udev. In Debian 12 only a
# change of the folder that udev itself names makes dpkg update the database.
function(find_udev_folder out)
  find_package(PkgConfig REQUIRED)
  pkg_get_variable(folder udev udevdir)
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(folder /etc/udev)
  elseif(NOT folder)
    set(folder /usr/lib/udev)
  endif()
  set(${out} ${folder} PARENT_SCOPE)
endfunction()

set(SCANLIB_HWDB_FILE "" CACHE STRING "Installed file of udev's hardware database")
if(NOT SCANLIB_HWDB_FILE)
  find_udev_folder(udev_folder)
  set(SCANLIB_HWDB_FILE ${udev_folder}/hwdb.d/60-scanlib.hwdb)
endif()
