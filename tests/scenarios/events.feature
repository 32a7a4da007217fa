@shared
Feature: What is written and sent for others

  Scenario: panic in the panic partition is a line of its own category
    Given a panel
    When the command "ozuctl --yes events add event 12 7 keyfob" is run
    Then the event "SECURITY EVENT: Type [ SEC_PANIC_EVENT ] Partition [ PARTITION_PANIC ] Media [ keyfob ]" is written
    When the command "ozuctl events --category 8" is run
    Then the command prints "PARTITION_PANIC"

  Scenario: a request that failed in the transfer is told by its code
    Given a panel
    When the command "ozuctl --yes events add http GET host.example -- -7" is run
    Then the event "Result [ CURL (-7) ]" is written

  @long
  Scenario: a switch of the time zone is told on request only
    Given a panel
    When the command "ozuctl time zone Europe/Berlin" is run
    Then no message is sent to "Process/ALL"
    When the command "ozuctl time zone Asia/Kathmandu --notify" is run
    Then a message is sent to "Process/ALL" with class 6 and command 0

  Scenario: the radio's process gets the level of a line
    Given a panel
    When the command "ozuctl gpio 7 1 --sender RFMAN" is run
    Then a message is sent to "Process/RF_MANAGER" from "RFMAN" with class 35 and command 10

  @long
  Scenario: a housing that is none is not sent to the co-processor
    Given a panel
    And the field "cpPlasticVersion" is set to "4"
    When the command "ozuctl nxp housing" is run
    Then the command ends with 4
    And no message is sent to "Process/MDL"
    When the field "cpPlasticVersion" is set to "2"
    And the command "ozuctl nxp housing" is run
    Then a message is sent to "Process/MDL" with class 0 and command 1
