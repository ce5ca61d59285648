# The headers that programs of others may include, as <valen/agent/RunnabilitySm.h>: the entry point,
# the entity types, the platform, and its implementation on Linux. Copies of them, which include each
# other in the same way, are generated below build/include and installed from there. A header that is
# not listed is internal; a listed header that includes one is a build error (CopyHeaders.cmake).
set( VALEN_HEADERS
   agent/RunnabilitySm.h
   types/ConfigTypes.h
   types/InterfaceTypes.h
   types/IpTypes.h
   types/KernelNetInfo.h
   types/L3Types.h
   types/StatusTypes.h
   types/ValenTypes.h
   platform/corvid/IntfId.h
   platform/corvid/NamespaceName.h
   platform/corvid/Pkt.h
   platform/corvid/RawTxPam.h
   platform/gantry/TaskScheduler.h
   platform/gantry/Timer.h
   platform/gantry/WorkQueue.h
   platform/orrery/EntityManager.h
   platform/orrery/QuillShoal.h
   platform/quill/Allocation.h
   platform/quill/Assert.h
   platform/quill/AttributeTags.h
   platform/quill/Attributes.h
   platform/quill/Children.h
   platform/quill/CollectionFields.h
   platform/quill/Collections.h
   platform/quill/Dir.h
   platform/quill/Display.h
   platform/quill/Entity.h
   platform/quill/EntityTables.h
   platform/quill/Exception.h
   platform/quill/Fault.h
   platform/quill/Field.h
   platform/quill/Int.h
   platform/quill/LinkQueue.h
   platform/quill/Pool.h
   platform/quill/Ptr.h
   platform/quill/Reactor.h
   platform/quill/Reflection.h
   platform/quill/Reinstantiation.h
   platform/quill/String.h
   platform/quill/Value.h
   platform/quill/WalkList.h
   platform/quill/Watch.h
   platform/trace/Blipline.h
   platform/trace/Trace.h
   platform/trace/TraceLevels.h
   platform/trace/Twinlog.h
   linux/DescriptorReaper.h
   linux/EventLoop.h
   linux/Fd.h
   linux/KernelNetInfoProvider.h
   linux/LinkControl.h
   linux/NetNs.h
   linux/PacketEndpoint.h
   linux/PacketSockets.h
   linux/TraceOutputs.h )

set( VALEN_INCLUDE_DIR "${CMAKE_BINARY_DIR}/include" )
string( REPLACE ";" "," headers "${VALEN_HEADERS}" )
list( TRANSFORM VALEN_HEADERS PREPEND "${CMAKE_SOURCE_DIR}/src/" OUTPUT_VARIABLE sources )
add_custom_command( OUTPUT "${VALEN_INCLUDE_DIR}/copied"
   COMMAND "${CMAKE_COMMAND}" "-DROOT=${CMAKE_SOURCE_DIR}/src" "-DOUT=${VALEN_INCLUDE_DIR}"
           "-DHEADERS=${headers}" -P "${CMAKE_CURRENT_LIST_DIR}/CopyHeaders.cmake"
   DEPENDS ${sources} "${CMAKE_CURRENT_LIST_FILE}" "${CMAKE_CURRENT_LIST_DIR}/CopyHeaders.cmake"
   COMMENT "Copying the public headers" VERBATIM )
add_custom_target( valen_headers ALL DEPENDS "${VALEN_INCLUDE_DIR}/copied" )
