; Takes back what associate.nsh wrote.
ReadRegStr $0 SHCTX "Software\Classes\.quor" ""
StrCmp $0 "Ombrelux.Checkpoint" 0 +2
DeleteRegKey SHCTX "Software\Classes\.quor"
DeleteRegKey SHCTX "Software\Classes\Ombrelux.Checkpoint"
DeleteRegValue SHCTX "Software\Classes\.ply\OpenWithProgids" "Ombrelux.Scene"
DeleteRegKey /ifempty SHCTX "Software\Classes\.ply\OpenWithProgids"
DeleteRegKey /ifempty SHCTX "Software\Classes\.ply"
DeleteRegKey SHCTX "Software\Classes\Ombrelux.Scene"
DeleteRegKey SHCTX "Software\Classes\Directory\shell\Ombrelux"
System::Call 'shell32::SHChangeNotify(i 0x08000000, i 0, p 0, p 0)'
