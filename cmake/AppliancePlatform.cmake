# The appliance's own libraries behind platform/. VELMAR_APPLIANCE_ROOT names a tree that holds them.
set(VELMAR_APPLIANCE_ROOT "" CACHE PATH "Where the appliance's libraries are installed")

add_library(velmar_appliance INTERFACE)
foreach(name vlmutils++ vlmconfig vlmcmdb++ vlmmailaccess vlmuser++ vlmi18n qrluser)
  find_library(VELMAR_LIB_${name} ${name} HINTS ${VELMAR_APPLIANCE_ROOT}/lib ${VELMAR_APPLIANCE_ROOT}/usr/lib REQUIRED)
  target_link_libraries(velmar_appliance INTERFACE ${VELMAR_LIB_${name}})
endforeach()
