#include "app/texts.h"

#include <QHash>
#include <QLocale>



namespace {

struct Entry {
    const char *key;
    const char *english;
    const char *german;
};

// Format texts take their values as %1, %2.
constexpr Entry kEntries[] = {
    // Sidebar and window
    {"close.title", "Recordings Are Running", "Aufnahmen laufen"},
    {"close.trayQuestion",
     "Recordings are running or planned. Keep Orvida running in the system tray when its window closes, so "
     "they go on? Your answer is remembered.",
     "Aufnahmen laufen oder sind geplant. Soll Orvida im Infobereich weiterlaufen, wenn das Fenster geschlossen "
     "wird, damit sie weitergehen? Deine Antwort wird gespeichert."},
    {"close.backgroundQuestion",
     "Recordings are running or planned. Keep recording in the background without a window? Orvida then ends "
     "by itself once nothing is recording or planned.",
     "Aufnahmen laufen oder sind geplant. Im Hintergrund ohne Fenster weiter aufnehmen? Orvida beendet sich "
     "dann von selbst, sobald nichts mehr aufgenommen wird oder geplant ist."},
    {"close.keepInTray", "Keep Running in the Tray", "Im Infobereich weiterlaufen"},
    {"close.keepInBackground", "Keep Recording in the Background", "Im Hintergrund weiter aufnehmen"},
    {"close.quit", "Quit and Stop Recordings", "Beenden und Aufnahmen stoppen"},
    {"close.cancel", "Cancel", "Abbrechen"},
    {"tray.show", "Show Orvida", "Orvida anzeigen"},
    {"tray.quit", "Quit", "Beenden"},
    {"app.title", "Orvida", "Orvida"},
    {"radio.sidebar", "Radio", "Radio"},
    {"recents.sidebar", "Recently Played", "Zuletzt gehört"},
    {"rec.sidebar", "Recordings", "Aufnahmen"},
    {"lib.sidebar", "Library", "Mediathek"},
    {"settings.sidebar", "Settings", "Einstellungen"},

    // Menus and keyboard
    {"menu.file", "&File", "&Datei"},
    {"menu.view", "&View", "&Ansicht"},
    {"menu.playback", "&Playback", "&Wiedergabe"},
    {"menu.help", "&Help", "&Hilfe"},
    {"menu.settings", "Settings", "Einstellungen"},
    {"menu.quit", "Quit", "Beenden"},
    {"menu.find", "Find", "Suchen"},
    {"menu.playPause", "Play or Pause", "Wiedergabe oder Pause"},
    {"menu.previous", "Previous Track", "Vorheriger Titel"},
    {"menu.next", "Next Track", "Nächster Titel"},
    {"menu.saveSong", "Save This Song", "Diesen Song speichern"},
    {"menu.favorite", "Add or Remove Favourite", "Favorit hinzufügen oder entfernen"},
    {"menu.shortcuts", "Keyboard Shortcuts", "Tastenkürzel"},
    {"shortcuts.title", "Keyboard Shortcuts", "Tastenkürzel"},
    {"shortcuts.action", "Action", "Aktion"},
    {"shortcuts.keys", "Keys", "Tasten"},
    {"shortcuts.playRow", "Listen to or play the selected row", "Gewählte Zeile anhören oder abspielen"},
    {"shortcuts.deleteTrack", "Delete the selected tracks (library)", "Gewählte Titel löschen (Mediathek)"},
    {"shortcuts.nextWidget", "Next or previous control", "Nächstes oder vorheriges Element"},
    {"shortcuts.close", "Close", "Schließen"},

    // Station lists
    {"station.name", "Name", "Name"},
    {"station.country", "Country", "Land"},
    {"station.codec", "Codec", "Codec"},
    {"station.bitrate", "Bitrate", "Bitrate"},
    {"station.titles", "Titles", "Titel"},
    {"station.icyBadge", "Song titles", "Songtitel"},
    {"station.icyTip", "This station sends song titles, so recordings are cut into songs.",
     "Dieser Sender schickt Songtitel mit, Aufnahmen werden in Songs geschnitten."},
    {"station.kbps", "%1 kbit/s", "%1 kbit/s"},
    {"station.listen", "Listen", "Anhören"},
    {"station.stopListening", "Stop Listening", "Anhören beenden"},
    {"station.record", "Record", "Aufnehmen"},
    {"station.stopRecording", "Stop Recording", "Aufnahme beenden"},
    {"station.recording", "Recording", "Nimmt auf"},

    // Radio view
    {"radio.title", "Radio", "Radio"},
    {"radio.searchPlaceholder", "Search stations by name or genre", "Sender nach Name oder Genre suchen"},
    {"radio.random", "Random Station", "Zufallssender"},
    {"radio.custom", "Stream Address…", "Stream-Adresse…"},
    {"radio.customTitle", "Add a Stream", "Stream hinzufügen"},
    {"radio.customUrl", "Stream address (http://…, .pls or .m3u):", "Stream-Adresse (http://…, .pls oder .m3u):"},
    {"radio.customName", "Name (optional):", "Name (optional):"},
    {"radio.recommendations", "Recommended stations", "Empfohlene Sender"},
    {"radio.resultsFormat", "Results for “%1”", "Ergebnisse für „%1“"},
    {"radio.randomPick", "Random pick", "Zufallsauswahl"},
    {"radio.customPick", "Your stream", "Dein Stream"},
    {"radio.searching", "Searching…", "Suche läuft…"},
    {"radio.loadingMore", "Loading more…", "Weitere werden geladen…"},
    {"radio.emptyTitle", "Find a station", "Finde einen Sender"},
    {"radio.emptyHint", "Type a name above, pick a random station, or enter a stream address.",
     "Gib oben einen Namen ein, wähle einen Zufallssender oder gib eine Stream-Adresse ein."},
    {"radio.noResultsFormat", "No stations found for “%1”.", "Keine Sender für „%1“ gefunden."},
    {"radio.allCountries", "All countries", "Alle Länder"},
    {"radio.allLanguages", "All languages", "Alle Sprachen"},
    {"radio.country", "Country", "Land"},
    {"radio.language", "Language", "Sprache"},
    {"radio.order", "Order", "Reihenfolge"},
    {"radio.orderClicks", "Most listened", "Meistgehört"},
    {"radio.orderVotes", "Most votes", "Meiste Stimmen"},
    {"radio.genre", "Genre for a random station", "Genre für einen Zufallssender"},
    {"radio.anyGenre", "Any genre", "Jedes Genre"},
    {"radio.filtered", "Stations matching the filters", "Sender, die zu den Filtern passen"},
    {"radio.noFiltered", "No stations match these filters.", "Keine Sender passen zu diesen Filtern."},
    {"radio.startPage", "Recommended and popular near you", "Empfohlen und beliebt in deiner Nähe"},
    {"radio.noRandomFormat", "No station found for the genre “%1”.", "Kein Sender für das Genre „%1“ gefunden."},

    // Globe
    {"globe.sidebar", "Globe", "Globus"},
    {"globe.title", "Globe", "Globus"},
    {"globe.countFormat", "%1 stations", "%1 Sender"},
    {"globe.reload", "Reload", "Neu laden"},
    {"globe.retry", "Try Again", "Erneut versuchen"},
    {"globe.loading", "Loading stations…", "Sender werden geladen…"},
    {"globe.loadingHint", "The stations of the globe are fetched once and kept for a week.",
     "Die Sender des Globus werden einmal geladen und eine Woche lang aufbewahrt."},
    {"globe.errorTitle", "Stations could not be loaded", "Sender konnten nicht geladen werden"},
    {"globe.emptyTitle", "No stations with a location", "Keine Sender mit Standort"},
    {"globe.emptyHint", "The directory sent no stations with a position. Try again later.",
     "Das Verzeichnis hat keine Sender mit Standort geliefert. Versuche es später noch einmal."},
    {"globe.updateFailedFormat", "Update failed: %1", "Aktualisierung fehlgeschlagen: %1"},
    {"globe.pickHint", "Click a dot to pick a station. Drag to turn the globe, scroll to zoom.",
     "Klicke auf einen Punkt, um einen Sender zu wählen. Ziehen dreht den Globus, Scrollen zoomt."},

    // Favourites
    {"fav.sidebar", "Favourites", "Favoriten"},
    {"fav.title", "Favourite Stations", "Lieblingssender"},
    {"fav.add", "Add to Favourites", "Zu Favoriten hinzufügen"},
    {"fav.remove", "Remove from Favourites", "Aus Favoriten entfernen"},
    {"fav.added", "Added to favourites", "Zu Favoriten hinzugefügt"},
    {"fav.removed", "Removed from favourites", "Aus Favoriten entfernt"},
    {"fav.emptyTitle", "No favourites yet", "Noch keine Favoriten"},
    {"fav.emptyHint", "Add stations from the radio search, or press Ctrl+D while a station plays.",
     "Füge Sender in der Radiosuche hinzu oder drücke Strg+D, während ein Sender läuft."},
    {"fav.noMatchesFormat", "No favourites match “%1”.", "Keine Favoriten passen zu „%1“."},
    {"fav.searchPlaceholder", "Filter favourites", "Favoriten filtern"},
    {"fav.countOne", "1 station", "1 Sender"},
    {"fav.countFormat", "%1 stations", "%1 Sender"},
    {"fav.reorderHint", "Drag stations to reorder them.", "Ziehe Sender, um sie neu anzuordnen."},
    {"fav.moveToTop", "Move to Top", "Ganz nach oben"},
    {"fav.moveUp", "Move Up", "Nach oben"},
    {"fav.moveDown", "Move Down", "Nach unten"},
    {"fav.scheduled", "Scheduled", "Geplant"},
    {"fav.shortcutHint", "Ctrl+D adds or removes the station that is playing.",
     "Strg+D fügt den laufenden Sender hinzu oder entfernt ihn."},

    // Recents
    {"recents.title", "Recently Played", "Zuletzt gehört"},
    {"recents.emptyTitle", "Nothing played yet", "Noch nichts gehört"},
    {"recents.emptyHint", "Stations you listen to or record show up here.",
     "Sender, die du hörst oder aufnimmst, erscheinen hier."},
    {"recents.forget", "Remove from List", "Aus Liste entfernen"},

    // Recordings
    {"rec.title", "Recordings", "Aufnahmen"},
    {"rec.station", "Station", "Sender"},
    {"rec.streamTitle", "Now Playing", "Läuft gerade"},
    {"rec.saved", "Songs Saved", "Gespeicherte Songs"},
    {"rec.status", "Status", "Status"},
    {"rec.stop", "Stop", "Stopp"},
    {"rec.stopAll", "Stop All", "Alle stoppen"},
    {"rec.running", "Recording", "Nimmt auf"},
    {"rec.waitingTitle", "Waiting for the first title…", "Warte auf den ersten Titel…"},
    {"rec.countOne", "1 recording running", "1 Aufnahme läuft"},
    {"rec.countFormat", "%1 recordings running", "%1 Aufnahmen laufen"},
    {"rec.emptyTitle", "Nothing is being recorded", "Es läuft keine Aufnahme"},
    {"rec.emptyHint", "Start a recording from the radio search, your favourites or the recent stations.",
     "Starte eine Aufnahme aus der Radiosuche, deinen Favoriten oder den zuletzt gehörten Sendern."},
    {"rec.time", "Time", "Dauer"},
    {"rec.received", "Received", "Empfangen"},
    {"rec.connecting", "Connecting…", "Verbinde…"},
    {"rec.connectingAttempt", "Connecting… (attempt %1 of %2)", "Verbinde… (Versuch %1 von %2)"},
    {"rec.reconnecting", "Reconnecting in %1 s (attempt %2 of %3)", "Neuer Versuch in %1 s (Versuch %2 von %3)"},
    {"rec.gaveUp", "Gave up: %1", "Aufgegeben: %1"},
    {"rec.stopped", "Stopped", "Gestoppt"},
    {"rec.dismiss", "Dismiss", "Ausblenden"},
    {"rec.savedFailed", "%1 · %2 failed", "%1 · %2 fehlgeschlagen"},
    {"rec.songSaved", "Saved: %1", "Gespeichert: %1"},
    {"rec.songSkipped", "Skipped: %1 (%2)", "Übersprungen: %1 (%2)"},
    {"rec.songFailed", "Not saved: %1", "Nicht gespeichert: %1"},
    {"rec.songNotice", "Note: %1", "Hinweis: %1"},
    {"rec.notifyGaveUp", "Recording gave up", "Aufnahme abgebrochen"},
    {"engine.streamInterrupted", "Stream interrupted", "Stream unterbrochen"},
    {"engine.invalidUrl", "Invalid stream URL", "Ungültige Stream-URL"},
    {"msg.dismiss", "Dismiss", "Ausblenden"},
    {"msg.earlierFormat", "…and %1 earlier messages", "…und %1 frühere Meldungen"},

    // Schedule
    {"schedule.sidebar", "Schedule", "Zeitplan"},
    {"schedule.title", "Scheduled Recordings", "Geplante Aufnahmen"},
    {"schedule.colStation", "Station", "Sender"},
    {"schedule.colWhen", "When", "Wann"},
    {"schedule.colMode", "Recording", "Aufnahme"},
    {"schedule.colRepeat", "Repeat", "Wiederholung"},
    {"schedule.modeSplit", "Split into songs", "In Songs schneiden"},
    {"schedule.modeFull", "Whole show", "Ganze Sendung"},
    {"schedule.repeatNone", "Once", "Einmalig"},
    {"schedule.repeatDaily", "Daily", "Täglich"},
    {"schedule.repeatWeekly", "Weekly", "Wöchentlich"},
    {"schedule.nextDay", "next day", "Folgetag"},
    {"schedule.remove", "Remove", "Entfernen"},
    {"schedule.countOne", "1 plan", "1 Plan"},
    {"schedule.countFormat", "%1 plans", "%1 Pläne"},
    {"schedule.emptyTitle", "Nothing scheduled", "Nichts geplant"},
    {"schedule.emptyHint", "Choose “Schedule…” on a station in Radio, Favourites or Recently Played.",
     "Wähle „Planen…“ bei einem Sender in Radio, Favoriten oder Zuletzt gehört."},
    {"schedule.action", "Schedule…", "Planen…"},
    {"schedule.dialogTitle", "Schedule a Recording", "Aufnahme planen"},
    {"schedule.start", "Start:", "Beginn:"},
    {"schedule.end", "End:", "Ende:"},
    {"schedule.mode", "Recording:", "Aufnahme:"},
    {"schedule.repeat", "Repeat:", "Wiederholen:"},
    {"schedule.add", "Schedule", "Planen"},
    {"schedule.endHint", "An end time not later than the start time is on the next day.",
     "Ein Ende, das nicht nach dem Beginn liegt, ist am Folgetag."},
    {"schedule.windowPassed", "This time has already passed.", "Dieser Zeitraum ist schon vorbei."},
    {"schedule.notifyStarted", "Scheduled recording started", "Geplante Aufnahme gestartet"},
    {"schedule.notifyEnded", "Scheduled recording finished", "Geplante Aufnahme beendet"},
    {"schedule.otherRunner",
     "Another Orvida on this computer (a second window or “orvida-cli run”) runs these plans; this window "
     "does not start them.",
     "Ein anderes Orvida auf diesem Rechner (ein zweites Fenster oder „orvida-cli run“) führt diese Pläne aus; "
     "dieses Fenster startet sie nicht."},

    // Library
    {"lib.title", "Library", "Mediathek"},
    {"lib.colTitle", "Title", "Titel"},
    {"lib.colArtist", "Artist", "Interpret"},
    {"lib.colAlbum", "Album", "Album"},
    {"lib.colDuration", "Duration", "Dauer"},
    {"lib.colStation", "Station", "Sender"},
    {"lib.colDateAdded", "Date Added", "Hinzugefügt"},
    {"lib.colPlayCount", "Plays", "Wiedergaben"},
    {"lib.filterPlaceholder", "Filter by title, artist, album or station",
     "Nach Titel, Interpret, Album oder Sender filtern"},
    {"lib.showInFolder", "Show in Folder", "Im Ordner zeigen"},
    {"lib.delete", "Delete…", "Löschen…"},
    {"lib.deleteTitle", "Delete Track", "Titel löschen"},
    {"lib.deleteOneFormat", "Delete “%1” and its file? This cannot be undone.",
     "„%1“ und die Datei löschen? Das lässt sich nicht rückgängig machen."},
    {"lib.deleteManyFormat", "Delete %1 tracks and their files? This cannot be undone.",
     "%1 Titel und ihre Dateien löschen? Das lässt sich nicht rückgängig machen."},
    {"lib.countOne", "1 track", "1 Titel"},
    {"lib.countFormat", "%1 tracks", "%1 Titel"},
    {"lib.shownFormat", "%1 of %2 tracks", "%1 von %2 Titeln"},
    {"lib.emptyTitle", "Your library is empty", "Deine Mediathek ist leer"},
    {"lib.emptyHint", "Songs you record are saved here automatically.",
     "Aufgenommene Songs landen automatisch hier."},
    {"lib.albums", "Albums", "Alben"},
    {"lib.albumsTip", "Show the albums as covers beside the list", "Die Alben als Cover neben der Liste zeigen"},
    {"lib.analysingFormat", "Analysing library: %1 / %2", "Mediathek wird analysiert: %1 / %2"},
    {"lib.unavailable", "The library could not be opened.", "Die Mediathek konnte nicht geöffnet werden."},
    {"library.allTracks", "All Tracks", "Alle Titel"},
    {"library.addToPlaylist", "Add to Playlist", "Zur Playlist hinzufügen"},

    // Playlists
    {"playlist.heading", "Playlists", "Playlists"},
    {"playlist.new", "New Playlist…", "Neue Playlist…"},
    {"playlist.newTitle", "New Playlist", "Neue Playlist"},
    {"playlist.defaultName", "New Playlist", "Neue Playlist"},
    {"playlist.nameLabel", "Name:", "Name:"},
    {"playlist.rename", "Rename…", "Umbenennen…"},
    {"playlist.renameTitle", "Rename Playlist", "Playlist umbenennen"},
    {"playlist.delete", "Delete Playlist…", "Playlist löschen…"},
    {"playlist.deleteTitle", "Delete Playlist", "Playlist löschen"},
    {"playlist.deleteFormat", "Delete the playlist “%1”? Its tracks stay in the library.",
     "Die Playlist „%1“ löschen? Ihre Titel bleiben in der Mediathek."},
    {"playlist.moveUp", "Move Up", "Nach oben"},
    {"playlist.moveDown", "Move Down", "Nach unten"},
    {"playlist.remove", "Remove from Playlist", "Aus Playlist entfernen"},
    {"playlist.emptyTitle", "This playlist is empty", "Diese Playlist ist leer"},
    {"playlist.emptyHint", "Drag tracks from All Tracks onto it, or choose Add to Playlist in a track's menu.",
     "Ziehe Titel aus „Alle Titel“ hierher oder wähle „Zur Playlist hinzufügen“ im Menü eines Titels."},
    {"playlist.notInLibrary", "This track is no longer in the library.", "Dieser Titel ist nicht mehr in der Mediathek."},

    // Player
    {"player.idle", "Not Playing", "Keine Wiedergabe"},
    {"player.play", "Play", "Abspielen"},
    {"player.pause", "Pause", "Pause"},
    {"player.previous", "Previous (Ctrl+Left)", "Zurück (Strg+Links)"},
    {"player.next", "Next (Ctrl+Right)", "Weiter (Strg+Rechts)"},
    {"player.playPauseTip", "Play or pause (Space)", "Wiedergabe oder Pause (Leertaste)"},
    {"player.shuffle", "Shuffle", "Zufällige Reihenfolge"},
    {"player.repeatOff", "Repeat: off", "Wiederholen: aus"},
    {"player.repeatAll", "Repeat: all", "Wiederholen: alle"},
    {"player.repeatOne", "Repeat: this track", "Wiederholen: diesen Titel"},
    {"player.volume", "Volume", "Lautstärke"},
    {"player.position", "Position", "Position"},
    {"player.upNext", "Up Next", "Als Nächstes"},
    {"player.upNextEmpty", "Nothing follows.", "Danach kommt nichts mehr."},
    {"player.upNextMoreFormat", "…and %1 more", "…und %1 weitere"},
    {"player.fileMissing", "the file is missing", "die Datei fehlt"},
    {"player.skippedFormat", "“%1” was skipped: %2", "„%1“ wurde übersprungen: %2"},
    {"player.noDeviceFormat", "No sound output could be opened (%1). Orvida plays without sound.",
     "Keine Tonausgabe ließ sich öffnen (%1). Orvida spielt ohne Ton."},

    // Listening live
    {"live.badge", "LIVE", "LIVE"},
    {"live.connecting", "Connecting…", "Verbinde…"},
    {"live.noTitle", "Live", "Live"},
    {"live.save", "Save This Song", "Diesen Song speichern"},
    {"live.saveTip", "Saves the song that is playing, from its beginning, into the library (Ctrl+S)",
     "Speichert den laufenden Song von seinem Anfang an in die Mediathek (Strg+S)"},
    {"live.saveUnavailable", "Saving starts with the next song the station names.",
     "Speichern geht ab dem nächsten Song, den der Sender nennt."},
    {"live.armedFormat", "“%1” will be saved when the song ends…", "„%1“ wird gespeichert, wenn der Song endet…"},
    {"live.savingFormat", "Saving “%1”…", "„%1“ wird gespeichert…"},
    {"live.savedFormat", "Saved: %1", "Gespeichert: %1"},
    {"live.skippedFormat", "“%1” was not saved: %2", "„%1“ wurde nicht gespeichert: %2"},
    {"live.saveFailedFormat", "The song could not be saved: %1", "Der Song konnte nicht gespeichert werden: %1"},
    {"live.failedFormat", "%1 · %2", "%1 · %2"},
    {"lib.colFavorite", "Favourite", "Favorit"},
    {"lib.favoriteTip", "Click the star to mark a favourite", "Klicke auf den Stern, um einen Favoriten zu markieren"},

    // Transition chooser
    {"trans.title", "Transition Between Tracks", "Übergang zwischen Titeln"},
    {"trans.crossfadeLength", "Crossfade length", "Länge der Überblendung"},
    {"trans.automixLength", "Automix length", "Länge des Automix"},
    {"trans.name.off", "Off", "Aus"},
    {"trans.name.gapless", "Gapless", "Lückenlos"},
    {"trans.name.crossfade", "Crossfade", "Überblenden"},
    {"trans.name.automix", "Automix", "Automix"},
    {"trans.hint.off", "One track ends, the next one starts.", "Ein Titel endet, der nächste beginnt."},
    {"trans.hint.gapless", "Tracks join without a gap, as on the album.",
     "Titel gehen ohne Pause ineinander über, wie auf dem Album."},
    {"trans.hint.crossfade", "The end of a track fades into the start of the next.",
     "Das Ende eines Titels wird in den Anfang des nächsten überblendet."},
    {"trans.hint.automix",
     "Tempo and beats are matched for a DJ-style mix; tracks too far apart in tempo are crossfaded.",
     "Tempo und Takt werden angeglichen, für einen Übergang wie vom DJ; liegen die Tempi zu weit "
     "auseinander, wird überblendet."},
    {"trans.secondsFormat", "%1 s", "%1 s"},
    {"trans.helpFormat", "Transition: %1. %2", "Übergang: %1. %2"},

    // Equaliser and loudness normalisation
    {"eq.button", "EQ", "EQ"},
    {"eq.buttonTip", "Equaliser and volume levelling", "Equalizer und Lautstärkeangleichung"},
    {"eq.title", "Equaliser", "Equalizer"},
    {"eq.enabled", "Equaliser on", "Equalizer an"},
    {"eq.preset", "Preset", "Voreinstellung"},
    {"eq.preset.flat", "Flat", "Neutral"},
    {"eq.preset.bass", "Bass", "Bass"},
    {"eq.preset.treble", "Treble", "Höhen"},
    {"eq.preset.vocal", "Vocal", "Stimme"},
    {"eq.preset.loudness", "Loudness", "Loudness"},
    {"eq.preset.custom", "Custom", "Eigene"},
    {"eq.preamp", "Preamp", "Vorverst."},
    {"eq.dbFormat", "%1 dB", "%1 dB"},
    {"eq.reset", "Reset", "Zurücksetzen"},
    {"norm.label", "Level tracks", "Lautstärke angleichen"},
    {"norm.off", "Off", "Aus"},
    {"norm.track", "Per track", "Pro Titel"},
    {"norm.album", "Per album", "Pro Album"},
    {"norm.hint", "Plays every track at the same loudness (%1 LUFS) without clipping. Tracks are measured in the background.",
     "Spielt jeden Titel gleich laut (%1 LUFS), ohne zu übersteuern. Titel werden im Hintergrund gemessen."},

    // Settings
    {"settings.title", "Settings", "Einstellungen"},
    {"settings.recording", "Recording", "Aufnahme"},
    {"settings.scope", "Settings for:", "Einstellungen für:"},
    {"settings.scopeGlobal", "All stations", "Alle Sender"},
    {"settings.naming", "File Names", "Dateinamen"},
    {"settings.namePattern", "File name:", "Dateiname:"},
    {"settings.folderPattern", "Sub-folders:", "Unterordner:"},
    {"settings.patternHelp", "Placeholders: %artist% %title% %streamtitle% %station% %date%",
     "Platzhalter: %artist% %title% %streamtitle% %station% %date%"},
    {"settings.preview", "Example:", "Beispiel:"},
    {"settings.noSubfolders", "None: files go straight into the radio folder",
     "Keine: Dateien landen direkt im Radio-Ordner"},
    {"settings.previewInvalid", "This pattern cannot be used.", "Dieses Muster ist nicht verwendbar."},
    {"settings.radioFolder", "Radio folder:", "Radio-Ordner:"},
    {"settings.choose", "Choose…", "Auswählen…"},
    {"settings.useDefault", "Default", "Standard"},
    {"settings.startup", "Startup", "Programmstart"},
    {"settings.startAtLogin", "Start at login", "Beim Anmelden starten"},
    {"settings.startAtLoginHint", "Orvida starts without a window, so planned recordings run after a restart.",
     "Orvida startet ohne Fenster, damit geplante Aufnahmen auch nach einem Neustart laufen."},
    {"settings.startAtLoginFailedFormat", "The login entry %1 could not be changed.",
     "Der Anmeldeeintrag %1 konnte nicht geändert werden."},
    {"settings.stats", "Statistics", "Statistik"},
    {"settings.statsToday", "Songs saved today:", "Heute gespeicherte Songs:"},
    {"settings.statsTotal", "Songs saved in total:", "Insgesamt gespeicherte Songs:"},
    {"settings.statsByStation", "By station:", "Nach Sender:"},
    {"settings.statsNone", "No songs recorded yet.", "Noch keine Songs aufgenommen."},
    {"settings.language", "Language", "Sprache"},
    {"settings.languageLabel", "Interface language:", "Sprache der Oberfläche:"},
    {"settings.languageSystem", "As the system", "Wie das System"},
    {"settings.languageEnglish", "English", "English"},
    {"settings.languageGerman", "Deutsch", "Deutsch"},
    {"engineLeadIn", "Lead-in:", "Vorlauf:"},
    {"engineLeadOut", "Lead-out:", "Nachlauf:"},
    {"engineMinDuration", "Shortest song:", "Kürzester Song:"},
    {"engineSeconds", " s", " s"},
    {"engineQuality", "Quality:", "Qualität:"},
    {"engineLeadInHint", "Audio kept before a title change, so a song does not start late.",
     "Audio vor einem Titelwechsel, damit ein Song nicht zu spät beginnt."},
    {"engineLeadOutHint", "Audio kept after a title change, so a song does not end early.",
     "Audio nach einem Titelwechsel, damit ein Song nicht zu früh endet."},
    {"engineSkipJingles", "Skip jingles and ads", "Jingles und Werbung überspringen"},
    {"engineSkipJinglesHint", "Titles that look like station IDs, jingles or ads are not saved.",
     "Titel, die nach Senderkennung, Jingle oder Werbung aussehen, werden nicht gespeichert."},
    {"engineQualityHint", "Lossless keeps the stream's own bytes; normal saves MP3 files.",
     "Verlustfrei behält die Bytes des Streams; Normal speichert MP3-Dateien."},
    {"engineQualityNormal", "Normal", "Normal"},
    {"engineQualityLossless", "Lossless", "Verlustfrei"},
    {"engineUsesGlobal", "This station uses the settings for all stations.",
     "Dieser Sender nutzt die Einstellungen für alle Sender."},
    {"engineResetStation", "Use Settings for All Stations", "Einstellungen für alle Sender nutzen"},
    {"engineResetGlobal", "Restore Defaults", "Standard wiederherstellen"},
    {"engineStationTitle", "Settings for %1", "Einstellungen für %1"},
    {"engineSettingsHelp",
     "Changes apply from the next song, also for recordings that are running.",
     "Änderungen gelten ab dem nächsten Song, auch für laufende Aufnahmen."},

    // Missing tools
    {"depsMissingTitle", "Some tools are missing", "Einige Werkzeuge fehlen"},
    {"depsMissingSubtitle", "Orvida uses ffmpeg and yt-dlp for saving, converting and downloading.",
     "Orvida nutzt ffmpeg und yt-dlp zum Speichern, Umwandeln und Herunterladen."},
    {"depsFFmpegDesc", "Encodes and tags recordings, converts files.",
     "Kodiert und taggt Aufnahmen, wandelt Dateien um."},
    {"depsYtdlpDesc", "Searches and downloads from the video site.",
     "Sucht und lädt von der Videoseite herunter."},
    {"depsFound", "Found", "Gefunden"},
    {"depsDownload", "Download", "Herunterladen"},
    {"depsCopyBinaries", "Or copy the programs next to Orvida:", "Oder kopiere die Programme neben Orvida:"},
    {"depsCheckAgain", "Check Again", "Erneut prüfen"},
    {"depsContinueAnyway", "Continue Anyway", "Trotzdem fortfahren"},

    // Settings checks, the station sheet, the schedule page's states, the tools' commands
    {"settings.unknownPlaceholdersFormat", "Not saved: unknown placeholder %1.",
     "Nicht gespeichert: unbekannter Platzhalter %1."},
    {"settings.closedLid", "Closed Lid", "Zugeklappter Laptop"},
    {"settings.closedLidRecording", "Keep recording with the lid closed",
     "Bei zugeklapptem Laptop weiter aufnehmen"},
    {"settings.closedLidHint",
     "While a recording runs or a planned one starts within the hour, closing the lid does not suspend the "
     "computer. At all other times the lid does what your system is set up to do. Keep the laptop plugged in "
     "and ventilated.",
     "Solange eine Aufnahme läuft oder eine geplante innerhalb der nächsten Stunde beginnt, versetzt das "
     "Zuklappen den Rechner nicht in den Ruhezustand. Sonst tut der Deckel, wofür dein System eingerichtet ist. "
     "Lass den Laptop am Netz und gut belüftet."},
    {"station.engineSettings", "Recording Settings…", "Aufnahme-Einstellungen…"},
    {"schedule.colStatus", "Status", "Status"},
    {"schedule.recordingFormat", "Recording: %1 · %2 saved", "Nimmt auf: %1 · %2 gespeichert"},
    {"schedule.recordingNoTitle", "no title yet", "noch kein Titel"},
    {"schedule.startsInFormat", "Starts in %1", "Beginnt in %1"},
    {"schedule.edit", "Edit…", "Bearbeiten…"},
    {"schedule.editTitle", "Edit Scheduled Recording", "Geplante Aufnahme bearbeiten"},
    {"schedule.save", "Save", "Sichern"},
    {"schedule.pastTitle", "Past windows", "Vergangene Zeitfenster"},
    {"schedule.pastHint", "The last windows recorded since Orvida started.",
     "Die letzten Zeitfenster, die seit dem Start von Orvida aufgenommen wurden."},
    {"schedule.savedFormat", "%1 songs saved", "%1 Songs gespeichert"},
    {"schedule.savedOne", "1 song saved", "1 Song gespeichert"},
    {"schedule.savedNone", "nothing saved", "nichts gespeichert"},
    {"depsAptComment", "# On Debian or Ubuntu:", "# Unter Debian oder Ubuntu:"},
    {"depsManualComment", "# Or download ffmpeg and yt-dlp, then:", "# ffmpeg und yt-dlp herunterladen, dann:"},
};

const QHash<QByteArray, const Entry *> &table()
{
    static const QHash<QByteArray, const Entry *> entries = [] {
        QHash<QByteArray, const Entry *> map;
        for (const Entry &entry : kEntries)
            map.insert(QByteArray(entry.key), &entry);
        return map;
    }();
    return entries;
}

Texts::Language g_language = Texts::systemLanguage();

} // namespace

namespace Texts {

Language systemLanguage()
{
    return QLocale::system().language() == QLocale::German ? Language::German : Language::English;
}

Language language()
{
    return g_language;
}

void setLanguage(Language lang)
{
    g_language = lang;
}

QString text(const char *key)
{
    const Entry *entry = table().value(QByteArray(key));
    if (!entry)
        return QString::fromUtf8(key);
    if (g_language == Language::German && entry->german && *entry->german)
        return QString::fromUtf8(entry->german);
    return QString::fromUtf8(entry->english);
}

bool has(const char *key, Language lang)
{
    const Entry *entry = table().value(QByteArray(key));
    if (!entry)
        return false;
    const char *value = lang == Language::German ? entry->german : entry->english;
    return value && *value;
}

QList<QByteArray> keys()
{
    return table().keys();
}

TransitionTexts transitionTexts()
{
    TransitionTexts texts;
    texts.title = text("trans.title");
    texts.crossfadeLength = text("trans.crossfadeLength");
    texts.automixLength = text("trans.automixLength");
    for (TransitionMode mode : TransitionModes::kAll) {
        const QByteArray raw = TransitionModes::rawValue(mode).toLatin1();
        texts.names.insert(mode, text(QByteArray("trans.name." + raw).constData()));
        texts.hints.insert(mode, text(QByteArray("trans.hint." + raw).constData()));
    }
    texts.secondsFormat = text("trans.secondsFormat");
    texts.helpFormat = text("trans.helpFormat");
    return texts;
}

QString engineMessage(const QString &message)
{
    // The engine's own literals, kept as they are in the model and on the command line.
    if (message == QStringLiteral("Stream unterbrochen"))
        return text("engine.streamInterrupted");
    if (message == QStringLiteral("Ungültige Stream-URL"))
        return text("engine.invalidUrl");
    return message;
}

} // namespace Texts
