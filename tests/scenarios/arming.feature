@shared
Feature: Arming as every process sees it

  @long
  Scenario Outline: partitions that are armed make the arm type
    Given a panel
    When partition <first> is armed
    And partition <second> is armed
    Then the arm type is <type>
    And partition <first> is armed
    And the panel is not in alarm

    Examples:
      | first     | second    | type            |
      | FULL      | FULL      | FULL            |
      | DAY       | DAY       | DAY             |
      | PERIMETER | ANNEX     | PERIMETER+ANNEX |
      | FULL      | PERIMETER | FULL+PERIMETER  |
      | NIGHT     | ANNEX     | NIGHT+ANNEX     |

  Scenario: a panel that was never armed is disarmed
    Given a panel
    Then the arm type is DISARMED
    And partition PANIC is disarmed

  Scenario: disarming one of two partitions leaves the other
    Given a panel
    And partition DAY is armed
    And partition PERIMETER is armed
    When partition DAY is disarmed
    Then the arm type is PERIMETER

  @long
  Scenario: panic alone is an alarm, too
    Given a panel
    When partition PANIC is in alarm
    Then the panel is in alarm
    And the arm type is DISARMED
    When partition PANIC is disarmed
    Then the panel is not in alarm

  Scenario: the security core arms on request
    Given a panel with the process "alarm_core"
    When the message 00 is sent to "Process/ALARM_CORE" from "KEYPAD" with class 1 and command 0
    Then partition FULL is armed
    And the event "Command:=SEC_CMD_ARM_PARTITION, Partition:=PARTITION_FULL, Media:=KEYPAD" is written by "ALARM_CORE"
    When the message 00 is sent to "Process/ALARM_CORE" from "KEYPAD" with class 1 and command 4
    Then partition FULL is disarmed
    And the event "SEC_CMD_DISARM_PARTITION" is written

  Scenario: the security core refuses a partition that is none
    Given a panel with the process "alarm_core"
    When the message 08 is sent to "Process/ALARM_CORE" with class 1 and command 0
    Then the log line "request for partition 8 refused" is written by "ALARM_CORE"
    And the arm type is DISARMED
