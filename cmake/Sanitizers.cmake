# Sanitizers and coverage for the whole build, chosen by the presets.
if(VELMAR_SANITIZE)
  add_compile_options(-fsanitize=${VELMAR_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VELMAR_SANITIZE})
endif()
if(VELMAR_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
