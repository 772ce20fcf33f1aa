#pragma once

/// Bus names, object paths and interfaces of the services on the session bus, and the object paths they log under.
namespace Names
{

constexpr char PhoneService[] = "com.quillmark.kova.phonemanager";
/// The service also logs under this path, and is known to the device's libraries by it.
constexpr char PhoneObject[] = "/com/quillmark/kova/phonemanager/phoneobj";
constexpr char PhoneInterface[] = "com.quillmark.kova.phoneinterface";
/// The log client reports lost lines under this path.
constexpr char LogObject[] = "/com/quillmark/kova/phonemanager/logobj";

constexpr char GsmService[] = "com.quillmark.kova.gsmmanager";
constexpr char GsmObject[] = "/com/quillmark/kova/gsmmanager/gsmobj";
constexpr char GsmInterface[] = "com.quillmark.kova.gsminterface";
constexpr char GsmLogObject[] = "/com/quillmark/kova/gsmmanager/logobj";

constexpr char SoundManagerService[] = "com.quillmark.kova.soundmanager";
constexpr char SoundManagerObject[] = "/com/quillmark/kova/soundmanager/soundobj";
constexpr char SoundManagerInterface[] = "com.quillmark.kova.soundinterface";

constexpr char AudioOutCtlService[] = "com.quillmark.kova.audiooutctlmanager";
constexpr char AudioOutCtlObject[] = "/com/quillmark/kova/audiooutctlmanager/audiooutctlobj";
constexpr char AudioOutCtlInterface[] = "com.quillmark.kova.audiooutctlinterface";

constexpr char AudioInCtlService[] = "com.quillmark.kova.audioinctlmanager";
constexpr char AudioInCtlObject[] = "/com/quillmark/kova/audioinctlmanager/audioinctlobj";
constexpr char AudioInCtlInterface[] = "com.quillmark.kova.audioinctlinterface";

}
