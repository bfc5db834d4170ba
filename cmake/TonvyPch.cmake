# Precompiled Qt headers, shared: two small targets each compile one
# precompiled header, and every library, program and test reuses the one that
# matches what it links (Widgets or not). A header compiled once saves parsing
# the Qt headers in every file; tests, one file each, would gain nothing from
# a header of their own. <QtTest> is left out: QtTest's headers depend on
# QT_TESTCASE_BUILDDIR and QT_TESTCASE_SOURCEDIR, which differ for every test
# folder, so GCC would refuse such a header in all but one.
#
# GCC uses a precompiled header only when the compile flags match; when they
# do not it warns (-Winvalid-pch) and reads the headers as usual, so a
# mismatch costs time, never correctness. Build with -DTONVY_PCH=OFF to check
# that every file includes what it uses.

set(TONVY_PCH_CORE
  <QByteArray> <QCoreApplication> <QDateTime> <QDir> <QFile> <QFileInfo> <QList>
  <QObject> <QPointer> <QString> <QStringList> <QTimer> <QVariant>
  <functional> <memory>)
set(TONVY_PCH_WIDGETS ${TONVY_PCH_CORE}
  <QApplication> <QBoxLayout> <QComboBox> <QFrame> <QGridLayout> <QKeyEvent> <QLabel>
  <QLineEdit> <QMessageBox> <QPushButton> <QRadioButton> <QWidget>)

# One precompiled header per kind of target.
function(_tonvy_pch_target name)
  cmake_parse_arguments(P "" "" "HEADERS;LIBS" ${ARGN})
  set(source ${CMAKE_BINARY_DIR}/pch/${name}.cpp)
  if(NOT EXISTS ${source})
    file(WRITE ${source} "// Only here to compile the precompiled header.\n")
  endif()
  add_library(${name} STATIC ${source})
  target_link_libraries(${name} PRIVATE ${P_LIBS})
  target_precompile_headers(${name} PRIVATE ${P_HEADERS})
  set_target_properties(${name} PROPERTIES AUTOMOC OFF AUTOUIC OFF AUTORCC OFF)
endfunction()

# Sets <out> to TRUE when <target> links <wanted>, directly or through others.
function(_tonvy_links target wanted out)
  set(queue ${target})
  set(seen "")
  set(found FALSE)
  while(queue AND NOT found)
    list(POP_FRONT queue current)
    if(current IN_LIST seen OR NOT TARGET ${current})
      continue()
    endif()
    list(APPEND seen ${current})
    get_target_property(aliased ${current} ALIASED_TARGET)
    if(aliased)
      set(current ${aliased})
    endif()
    if(current STREQUAL wanted)
      set(found TRUE)
      break()
    endif()
    get_target_property(type ${current} TYPE)
    set(links "")
    if(NOT type STREQUAL "INTERFACE_LIBRARY")
      get_target_property(direct ${current} LINK_LIBRARIES)
      if(direct)
        list(APPEND links ${direct})
      endif()
    endif()
    get_target_property(interface ${current} INTERFACE_LINK_LIBRARIES)
    if(interface)
      list(APPEND links ${interface})
    endif()
    foreach(link IN LISTS links)
      string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" link "${link}")
      if(TARGET ${link})
        list(APPEND queue ${link})
      endif()
    endforeach()
  endwhile()
  set(${out} ${found} PARENT_SCOPE)
endfunction()

function(_tonvy_collect_targets dir out)
  get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(sub IN LISTS subdirs)
    _tonvy_collect_targets(${sub} more)
    list(APPEND targets ${more})
  endforeach()
  set(${out} ${targets} PARENT_SCOPE)
endfunction()

# Call once, after every target is defined.
function(tonvy_reuse_precompiled_headers)
  _tonvy_pch_target(tonvy_pch_core HEADERS ${TONVY_PCH_CORE} LIBS Qt6::Core)
  _tonvy_pch_target(tonvy_pch_widgets HEADERS ${TONVY_PCH_WIDGETS} LIBS Qt6::Widgets)

  _tonvy_collect_targets(${CMAKE_SOURCE_DIR} targets)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(NOT type MATCHES "^(STATIC_LIBRARY|EXECUTABLE)$" OR target MATCHES "^tonvy_pch_")
      continue()
    endif()
    get_target_property(own ${target} PRECOMPILE_HEADERS)
    if(own)
      continue()
    endif()
    _tonvy_links(${target} Qt6::Core with_core)
    if(NOT with_core)
      continue()
    endif()
    _tonvy_links(${target} Qt6::Widgets with_widgets)
    if(with_widgets)
      target_precompile_headers(${target} REUSE_FROM tonvy_pch_widgets)
    else()
      target_precompile_headers(${target} REUSE_FROM tonvy_pch_core)
    endif()
  endforeach()
endfunction()
