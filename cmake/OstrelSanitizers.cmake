# OSTREL_SANITIZE applies to every target of the project alike: a sanitizer that sees only a part
# of a program reports less than it should.
if(OSTREL_SANITIZE)
  add_compile_options(-fsanitize=${OSTREL_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${OSTREL_SANITIZE})
endif()
