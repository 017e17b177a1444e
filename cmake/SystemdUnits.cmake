# Timers and services of the command, its user and its directories. Where systemd looks below any usual prefix.
set(VELMAR_UNIT_DIR lib/systemd/system CACHE STRING "Where systemd units are installed")

set(units_built ${PROJECT_BINARY_DIR}/systemd)
foreach(service spamreport-run spamreport-queue)
  configure_file(packaging/systemd/${service}.service.in ${units_built}/${service}.service @ONLY)
endforeach()
install(FILES ${units_built}/spamreport-run.service ${units_built}/spamreport-queue.service
              packaging/systemd/spamreport-run.timer packaging/systemd/spamreport-queue.timer
              packaging/systemd/spamreport-queue.path
        DESTINATION ${VELMAR_UNIT_DIR})
install(FILES packaging/systemd/spamreport-common.conf DESTINATION ${VELMAR_UNIT_DIR}/spamreport-.service.d)
install(FILES packaging/systemd/sysusers.conf DESTINATION lib/sysusers.d RENAME spamreport.conf)
install(FILES packaging/systemd/tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME spamreport.conf)
