; Who opens what: checkpoints by a double click; scenes and project folders by a choice in their menus, since other
; programs have files and folders of these kinds too.
WriteRegStr SHCTX "Software\Classes\.quor" "" "Ombrelux.Checkpoint"
WriteRegStr SHCTX "Software\Classes\Ombrelux.Checkpoint" "" "Ombrelux checkpoint"
WriteRegStr SHCTX "Software\Classes\Ombrelux.Checkpoint\DefaultIcon" "" "$INSTDIR\Ombrelux.exe,0"
WriteRegStr SHCTX "Software\Classes\Ombrelux.Checkpoint\shell\open\command" "" '"$INSTDIR\Ombrelux.exe" "%1"'
WriteRegStr SHCTX "Software\Classes\.ply\OpenWithProgids" "Ombrelux.Scene" ""
WriteRegStr SHCTX "Software\Classes\Ombrelux.Scene" "" "Splat scene"
WriteRegStr SHCTX "Software\Classes\Ombrelux.Scene\DefaultIcon" "" "$INSTDIR\Ombrelux.exe,0"
WriteRegStr SHCTX "Software\Classes\Ombrelux.Scene\shell\open\command" "" '"$INSTDIR\Ombrelux.exe" "%1"'
WriteRegStr SHCTX "Software\Classes\Directory\shell\Ombrelux" "" "Open with Ombrelux"
WriteRegStr SHCTX "Software\Classes\Directory\shell\Ombrelux" "Icon" "$INSTDIR\Ombrelux.exe,0"
WriteRegStr SHCTX "Software\Classes\Directory\shell\Ombrelux\command" "" '"$INSTDIR\Ombrelux.exe" "%1"'
System::Call 'shell32::SHChangeNotify(i 0x08000000, i 0, p 0, p 0)'
