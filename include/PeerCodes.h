#pragma once

// Values on the interfaces of the GSM daemon and the audio services.

/// The Status of a request that succeeded.
constexpr int PeerStatusSuccess = 0;

/// The key of a call's number in CallInfo; its value is empty if the number is withheld.
constexpr char LineIdentificationKey[] = "LineIdentification";

/// The voice stream of a call, as StopPlay names it.
constexpr char GsmVoiceStream[] = "gsmvoice";

/// The output type of a call on the loudspeaker.
constexpr unsigned int OutputTypeCall = 2;
