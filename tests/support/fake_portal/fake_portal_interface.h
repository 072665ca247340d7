#ifndef LINUX_CAPTURE_TESTS_SUPPORT_FAKE_PORTAL_FAKE_PORTAL_INTERFACE_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_FAKE_PORTAL_FAKE_PORTAL_INTERFACE_H_

namespace linux_capture::fake_portal {

// The part of the portal's interfaces that a screen cast uses.
inline constexpr char kInterfaces[] = R"(
<node>
  <interface name="org.freedesktop.portal.ScreenCast">
    <method name="CreateSession">
      <arg type="a{sv}" direction="in"/>
      <arg type="o" direction="out"/>
    </method>
    <method name="SelectSources">
      <arg type="o" direction="in"/>
      <arg type="a{sv}" direction="in"/>
      <arg type="o" direction="out"/>
    </method>
    <method name="Start">
      <arg type="o" direction="in"/>
      <arg type="s" direction="in"/>
      <arg type="a{sv}" direction="in"/>
      <arg type="o" direction="out"/>
    </method>
    <method name="OpenPipeWireRemote">
      <arg type="o" direction="in"/>
      <arg type="a{sv}" direction="in"/>
      <arg type="h" direction="out"/>
    </method>
    <property name="version" type="u" access="read"/>
    <property name="AvailableSourceTypes" type="u" access="read"/>
    <property name="AvailableCursorModes" type="u" access="read"/>
  </interface>
  <interface name="org.freedesktop.portal.Request">
    <method name="Close"/>
    <signal name="Response">
      <arg type="u"/>
      <arg type="a{sv}"/>
    </signal>
  </interface>
  <interface name="org.freedesktop.portal.Session">
    <method name="Close"/>
    <signal name="Closed"/>
  </interface>
</node>)";

}  // namespace linux_capture::fake_portal

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_FAKE_PORTAL_FAKE_PORTAL_INTERFACE_H_
