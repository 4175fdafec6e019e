# Debian packages of the kit: `cpack -G DEB` in a build folder (a shared build is what a
# distribution ships; a static build packs the same files with libsagelykit-dev holding the
# archives). Each install component becomes one package:
#   libsagelykit0      the core library and its resources (share/SagelyKit)
#   libsagelykit-ui0   the Qt views library
#   libsagelykit-dev   headers, CMake package, pkg-config file, link names and archives
#   sagely             the command-line host
#   sagely-demo        the sample desktop host
set(CPACK_PACKAGE_NAME "sagelykit")
set(CPACK_PACKAGE_VENDOR "Brindlewood")
set(CPACK_PACKAGE_CONTACT "SagelyKit developers <sagelykit@brindlewood.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "In-app chat coach kit for desktop applications")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_GENERATOR "DEB")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION "libs")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET sagely)
  list(APPEND CPACK_COMPONENTS_ALL cli)
endif()
if(TARGET SagelyUI AND BUILD_SHARED_LIBS)
  list(APPEND CPACK_COMPONENTS_ALL ui)
endif()
if(TARGET sagely-demo)
  list(APPEND CPACK_COMPONENTS_ALL demo)
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "libsagelykit${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_UI_PACKAGE_NAME "libsagelykit-ui${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "libsagelykit-dev")
set(CPACK_DEBIAN_CLI_PACKAGE_NAME "sagely")
set(CPACK_DEBIAN_DEMO_PACKAGE_NAME "sagely-demo")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION "libdevel")
set(CPACK_DEBIAN_CLI_PACKAGE_SECTION "utils")
set(CPACK_DEBIAN_DEMO_PACKAGE_SECTION "x11")

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "SagelyKit core library and its shipped guide")
set(CPACK_COMPONENT_UI_DESCRIPTION "SagelyKit views for Qt 6 Widgets")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "SagelyKit headers, CMake package and pkg-config file")
set(CPACK_COMPONENT_CLI_DESCRIPTION "sagely: ask an application's coach from a terminal")
set(CPACK_COMPONENT_DEMO_DESCRIPTION "sagely-demo: a sample desktop host of SagelyKit")

# Our own packages depend on each other by component; what the system provides is found by
# dpkg-shlibdeps for the core library (its only dependencies are system libraries) and named for
# the rest, whose binaries also link our own libraries, which dpkg-shlibdeps cannot resolve
# before they are installed.
set(CPACK_COMPONENT_UI_DEPENDS runtime)
set(CPACK_COMPONENT_CLI_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DEMO_DEPENDS runtime)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_CLI_PACKAGE_DEPENDS "libedit2, libstdc++6, libc6")
set(CPACK_DEBIAN_UI_PACKAGE_DEPENDS "libqt6widgets6, libqt6svg6, libmd4c0, libstdc++6, libc6")
set(CPACK_DEBIAN_DEMO_PACKAGE_DEPENDS "libqt6widgets6, libqt6svg6, libmd4c0, libstdc++6, libc6")
if(BUILD_SHARED_LIBS)
  if(TARGET SagelyUI)
    list(APPEND CPACK_COMPONENT_DEVELOPMENT_DEPENDS ui)
    list(APPEND CPACK_COMPONENT_DEMO_DEPENDS ui)
  endif()
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "nlohmann-json3-dev")
else()
  # Static: the hosts hold the kit and link only system libraries themselves.
  set(CPACK_DEBIAN_CLI_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_DEMO_PACKAGE_SHLIBDEPS ON)
  unset(CPACK_DEBIAN_CLI_PACKAGE_DEPENDS)
  unset(CPACK_DEBIAN_DEMO_PACKAGE_DEPENDS)
  # The archives need the core's own dependencies at the host's link step.
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
      "nlohmann-json3-dev, libcurl4-openssl-dev | libcurl-dev, libicu-dev, libsecret-1-dev, pkg-config")
endif()

include(CPack)
