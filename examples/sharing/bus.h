/*
 * Where clients find the service: D-Bus, without a bus, on a socket in the service's state folder. What they can ask of
 * it is in quillo.Sharing.xml.
 */
#ifndef SHARING_BUS_H
#define SHARING_BUS_H

namespace sharing::bus
{

inline constexpr char socket_name[] = "sharingd.socket"; /**< in the state folder */
inline constexpr char object[] = "/quillo/Sharing";
inline constexpr char interface[] = "quillo.Sharing";

/** Begins the name of every error. The client's code follows, without its sign; the message is a sentence. */
inline constexpr char error_prefix[] = "quillo.Sharing.Error";

} // namespace sharing::bus

#endif
