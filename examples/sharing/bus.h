/*
 * What a client and the service say to one another: D-Bus, without a bus, on a socket in the service's state folder.
 * Paths and file names are byte strings, since they need not be UTF-8; recipients are COUNTRY-CODE:NUMBER.
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

/** A transfer: id, name, local path, status, percentage, offset, retries, and the last failure's code and sentence. */
#define SHARING_FILE "(uayayuutuis)"

/** Kind of transfer, status of the request, whether that is its last, size, token, last failure, and the transfers. */
#define SHARING_REQUEST "(uubtsisa" SHARING_FILE ")"

inline constexpr char description[] = R"(<node>
  <interface name='org.freedesktop.DBus'> <!-- for tools that take any peer for a bus -->
    <method name='Hello'><arg name='name' type='s' direction='out'/></method>
  </interface>
  <interface name='quillo.Sharing'>
    <method name='Send'><arg name='files' type='aay'/><arg name='recipients' type='as'/>
      <arg name='description' type='s'/><arg name='request' type='u' direction='out'/></method>
    <method name='List'> <!-- request, status, size, files, recipients, sent at (seconds) -->
      <arg name='uploads' type='a(uutuast)' direction='out'/></method>
    <method name='Describe'><arg type='u'/><arg name='state' type=')" SHARING_REQUEST R"(' direction='out'/></method>
    <method name='Pause'><arg name='request' type='u'/></method>
    <method name='Resume'><arg name='request' type='u'/></method>
    <method name='Cancel'><arg name='request' type='u'/></method>
    <method name='Inbox'> <!-- received at (milliseconds), new, files not downloaded, the encoded share -->
      <arg name='shares' type='a(tbuay)' direction='out'/><arg name='unreadable' type='u' direction='out'/></method>
    <method name='Get'><arg name='token' type='s'/><arg name='folder' type='ay'/>
      <arg name='request' type='u' direction='out'/></method>
    <method name='Recent'><arg name='groups' type='aas' direction='out'/></method>
    <method name='Forget'/>
    <signal name='Progress'><arg name='request' type='u'/><arg name='file' type=')" SHARING_FILE R"('/></signal>
    <signal name='State'><arg name='request' type='u'/></signal> <!-- ask Describe for it -->
  </interface>
</node>)";

} // namespace sharing::bus

#endif
