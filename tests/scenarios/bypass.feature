@shared
Feature: Contacts and their bypass

  @long
  Scenario: a bypassed window does not raise the alarm
    Given a panel with the process "alarm_core"
    And a magnet contact "window" on device 2, bypassed for 5 minutes
    When partition FULL is armed
    And the contact "window" opens
    Then the panel is not in alarm
    When 6 minutes pass
    Then the panel is in alarm within 2 seconds

  Scenario: a door that opens while FULL is armed raises the alarm
    Given a panel with the process "alarm_core"
    And a magnet contact "door" on device 1
    When partition FULL is armed
    And the contact "door" opens
    Then the panel is in alarm
    And the log line "ALARM: contact of device 1 (W3) is open" is written by "ALARM_CORE"
    And the event "SEC_DETECTION_IMMEDIATE_EVENT" is written by "ALARM_CORE"
    And a message is sent to "Process/SAFETY_SIREN" from "ALARM_CORE" with class 1 and command 1

  @long
  Scenario: a door that opens while only DAY is armed does not
    Given a panel with the process "alarm_core"
    And a magnet contact "door" on device 1
    When partition DAY is armed
    And the contact "door" opens
    Then the panel is not in alarm
    And no log line "ALARM" is written

  Scenario: the end of a bypass is told
    Given a panel
    And the process "door_contact" is started with "3"
    And a magnet contact "cellar" on device 3, bypassed for 1 minute
    Then the log line "device 3: bypass begins" is written by "DOOR_CONTACT"
    When 30 seconds pass
    Then "cellar" is bypassed
    When 40 seconds pass
    Then the log line "device 3: bypass ends" is written by "DOOR_CONTACT"
    And a message is sent to "Multicast/TBB_EVENT" from "MESSENGER"
    And "cellar" is not bypassed

  Scenario: a bypass without an end outlasts a year
    Given a panel
    And a magnet contact "attic" on device 4
    And "attic" is bypassed
    When 365 days pass
    Then "attic" is bypassed
    When "attic" is no longer bypassed
    Then "attic" is not bypassed

  Scenario: a timed bypass lasts while the clock is set back
    Given a panel
    And a magnet contact "window" on device 2, bypassed for 5 minutes
    When the clock jumps back by 2 hours
    Then "window" is bypassed
    When the fault is over
    And 301 seconds pass
    Then "window" is not bypassed

  @long
  Scenario: an open contact counts only while it is not bypassed
    Given a panel
    And a magnet contact "door" on device 1
    When the contact "door" opens
    Then the contact "door" counts as open
    When "door" is bypassed for 1 hour
    Then the contact "door" does not count as open
    When the contact "door" closes
    And "door" is no longer bypassed
    Then the contact "door" does not count as open
