# The cloud's services, production, staging and development: HTTPS origins of at most 63 characters,
# without a slash at the end. A maker sets the options; zorv_services hands them to who asks.
add_library(zorv_services INTERFACE)
foreach(service IN ITEMS crash trace)
    string(TOUPPER ${service} option)
    set(ZORV_${option}_ORIGIN https://${service}.zorv.example
        CACHE STRING "The ${service} service")
    set(ZORV_${option}_STAGING_ORIGIN https://${service}.stage.zorv.example
        CACHE STRING "The ${service} service, staging")
    set(ZORV_${option}_DEVELOPMENT_ORIGIN https://${service}.dev.zorv.example
        CACHE STRING "The ${service} service, development")
    foreach(variable IN ITEMS ORIGIN STAGING_ORIGIN DEVELOPMENT_ORIGIN)
        target_compile_definitions(zorv_services INTERFACE
            ZORV_${option}_${variable}="${ZORV_${option}_${variable}}")
    endforeach()
endforeach()
